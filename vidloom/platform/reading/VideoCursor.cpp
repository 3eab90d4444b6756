#include "vidloom/platform/reading/VideoCursor.h"

#include "vidloom/platform/reading/ReadingErrors.h"

namespace vidloom {

namespace {

const MediaTrack& trackOf(const MediaSegment& segment) { return segment.file->tracks()[static_cast<size_t>(segment.trackIndex)]; }

/// Timestamps are whole numbers of the track's timescale, so rounding down to it never passes a frame's own.
CMTime mediaTimeOnTrackScale(const MediaSegment& segment, const ExactTime& time) {
  const CMTimeScale scale = trackOf(segment).naturalTimeScale;
  return CMTimeMake(SegmentWalk::mediaTime(segment, time).floorTicks(scale), scale);
}

}  // namespace

std::optional<CGSize> VideoCursor::displaySizeAt(const ExactTime& time) {
  const MediaSegment* segment = walk_.segmentAt(time);
  if (!segment) return std::nullopt;
  return trackOf(*segment).naturalSize;
}

std::optional<SourcePicture> VideoCursor::pictureAt(const ExactTime& time, std::optional<NSError>* error) {
  const MediaSegment* segment = walk_.segmentAt(time);
  if (!segment) {
    picture_ = nullptr;
    file_ = nullptr;
    return std::nullopt;
  }
  std::optional<NSError> cause;
  VideoDecoder* decoder = pool_.acquire(number_, segment->file, segment->trackIndex, &cause);
  const CMTime mediaTime = mediaTimeOnTrackScale(*segment, time);
  const bool isThere = decoder && (holdsFrameAt(*segment, mediaTime) || decode(*segment, mediaTime, *decoder, &cause));
  if (isThere) return SourcePicture{picture_, trackOf(*segment).naturalSize};
  if (error) *error = readingError(segment->file->path(), time.seconds(), cause);
  return std::nullopt;
}

bool VideoCursor::holdsFrameAt(const MediaSegment& segment, const CMTime& mediaTime) const {
  return picture_ && file_ == segment.file && trackIndex_ == segment.trackIndex && CMTimeCompare(shownFrom_, mediaTime) <= 0 &&
         CMTimeCompare(mediaTime, shownUntil_) < 0;
}

bool VideoCursor::decode(const MediaSegment& segment, const CMTime& mediaTime, VideoDecoder& decoder,
                         std::optional<NSError>* error) {
  const std::optional<VideoFrame> frame = decoder.frameAt(mediaTime, error);
  if (!frame || !frame->picture) return false;
  picture_ = frame->picture;
  file_ = segment.file;
  trackIndex_ = segment.trackIndex;
  shownFrom_ = CMTimeMinimum(frame->mediaTime, mediaTime);
  const CMTime next = decoder.nextFrameTime();
  // Without knowledge of the next frame only the very moment is certain.
  shownUntil_ = CMTIME_IS_VALID(next) ? next : CMTimeAdd(mediaTime, CMTimeMake(1, mediaTime.timescale));
  return true;
}

}  // namespace vidloom
