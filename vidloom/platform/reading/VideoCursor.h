// The pictures of one track at any composition time.
#pragma once

#include <memory>
#include <optional>

#include "vidloom/platform/reading/DecoderPool.h"
#include "vidloom/platform/reading/SegmentWalk.h"

namespace vidloom {

/// A picture of a track and the size at which it is to be seen, pixel aspect applied.
struct SourcePicture {
  PictureRef picture;
  CGSize displaySize;
};

/// Walks the segments of one track. One thread at a time. The pool outlives it.
class VideoCursor {
 public:
  VideoCursor(int number, std::vector<MediaSegment> segments, VideoDecoderPool& pool)
      : number_(number), walk_(std::move(segments)), pool_(pool) {}

  /// The picture on screen at `time`: the one with the greatest timestamp at or before the exact media time. Nullopt where the
  /// track is empty, and with an error naming file, time and cause where the file gives no picture.
  std::optional<SourcePicture> pictureAt(const ExactTime& time, std::optional<NSError>* error);
  /// The size of what is on screen at `time`, without decoding it; nullopt where the track is empty.
  std::optional<CGSize> displaySizeAt(const ExactTime& time);

 private:
  bool holdsFrameAt(const MediaSegment& segment, const CMTime& mediaTime) const;
  bool decode(const MediaSegment& segment, const CMTime& mediaTime, VideoDecoder& decoder, std::optional<NSError>* error);

  const int number_;
  SegmentWalk walk_;
  VideoDecoderPool& pool_;
  // The frame given last and the half-open stretch of media time in which it is known to be on screen.
  PictureRef picture_;
  std::shared_ptr<const MediaFile> file_;
  int trackIndex_ = 0;
  CMTime shownFrom_, shownUntil_;
};

}  // namespace vidloom
