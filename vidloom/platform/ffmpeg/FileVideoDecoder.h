// VideoDecoder on an opened file.
#pragma once

#include "vidloom/platform/ffmpeg/Deinterlacer.h"
#include "vidloom/platform/ffmpeg/FrameDecoder.h"
#include "vidloom/platform/ffmpeg/PictureMaker.h"
#include "vidloom/platform/ffmpeg/VideoDecoder.h"

namespace vidloom {

/// Keeps the picture on screen and the one after it. Every search ends at the picture that decoding from the beginning would show:
/// where a key frame turns out to be too late for that, decoding begins at an earlier one.
class FileVideoDecoder final : public VideoDecoder {
 public:
  explicit FileVideoDecoder(std::unique_ptr<FrameDecoder> decoder);

  std::optional<VideoFrame> frameAt(const CMTime& mediaTime, std::optional<NSError>* error) override;
  CMTime nextFrameTime() const override;
  void cancel() override { decoder_->packets().cancel(); }
  int seekCount() const override { return seekCount_; }

 private:
  struct Held {
    DecodedFrame decoded;
    PictureRef picture;  ///< made when it is asked for
  };

  int64_t floorTicks(const CMTime& time) const;
  CMTime timeOf(int64_t ticks) const;
  bool isShownAt(int64_t target) const;
  bool isNearer(int64_t target) const;
  const KeyFrame* keyFrameAt(int64_t target) const;
  bool findFrom(int64_t target);
  bool findBefore(int64_t target);
  void begin(bool atBeginning);
  bool isReliable(int64_t target) const;
  bool decodeTo(int64_t target);
  bool fetch();
  bool isWanted(const DecodedFrame& frame) const;
  std::optional<VideoFrame> give(std::optional<NSError>* error);

  std::unique_ptr<FrameDecoder> decoder_;
  const MediaTrack& track_;
  const TrackSource& source_;
  Deinterlacer deinterlacer_;
  PictureMaker maker_;
  int64_t frameTicks_ = 1;  ///< a picture's usual length
  std::optional<Held> shown_;
  std::optional<DecodedFrame> ahead_, damaged_;
  bool atEnd_ = false;
  int framesInRun_ = 0;
  bool fromBeginning_ = true;  ///< this run of decoding began with the file's first packet
  std::optional<int64_t> earliestPts_;
  bool hasDecoded_ = false;
  int seekCount_ = 0;
};

}  // namespace vidloom
