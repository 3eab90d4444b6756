// The frames of one track as they are, one sample each.
#pragma once

#include <atomic>
#include <memory>
#include <optional>

#include "vidloom/platform/avfoundation/AVAssetReaderOutput.h"
#include "vidloom/platform/pixels/LayerCompositor.h"
#include "vidloom/platform/reading/DecoderPool.h"
#include "vidloom/platform/reading/SegmentWalk.h"

namespace vidloom {

/// Hands out every frame that is on screen within the range, at its own time in the asset; one that is on screen when the range or
/// a segment begins has that time instead. Frames keep their stored size unless another one is asked for.
class TrackFrameSource : public SampleSource {
 public:
  struct Setup {
    std::shared_ptr<AVAssetTrack> track;
    OSType pixelFormat = kCVPixelFormatType_32BGRA;
    int width = 0, height = 0;  ///< 0: as stored
    CMTimeRange range;          ///< numeric
    VideoDecoderPool::Opener opener = openVideoDecoders();
  };
  explicit TrackFrameSource(Setup setup);
  ~TrackFrameSource() override;

  CMSampleBufferRef next(std::optional<NSError>* error) override;
  void cancel() override;

 private:
  /// Moves on to the segment that the next frame lies in. Null at the end of the range.
  const MediaSegment* findSegment();
  std::optional<VideoFrame> decode(const MediaSegment& segment, std::optional<NSError>* error);
  void learnNextFrame(VideoDecoder& decoder, CMTime mediaTime);
  CMTime endOf(const MediaSegment& segment) const;
  CMSampleBufferRef makeSample(PictureRef picture, const CMTime& time, const CMTime& duration);

  const Setup setup_;
  const CMTime end_;
  const std::vector<MediaSegment> segments_;
  std::shared_ptr<VideoDecoderPool> pool_;
  LayerCompositor scaler_;
  size_t index_ = 0;          ///< of the segment
  bool isInSegment_ = false;  ///< a frame of it was given
  CMTime time_;               ///< when the next frame comes on screen
  CMTime mediaTime_;          ///< the same in media time
  std::atomic<bool> isCancelled_{false};
};

}  // namespace vidloom
