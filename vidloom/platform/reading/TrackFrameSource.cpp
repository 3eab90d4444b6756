#include "vidloom/platform/reading/TrackFrameSource.h"

#include "vidloom/platform/dispatch/dispatch.h"
#include "vidloom/platform/reading/ReadingErrors.h"
#include "vidloom/platform/reading/VideoSamples.h"

namespace vidloom {

namespace {

CMTime assetTime(const MediaSegment& segment, const CMTime& mediaTime) {
  if (CMTimeCompare(segment.media.duration, segment.target.duration) == 0) {
    return CMTimeAdd(segment.target.start, CMTimeSubtract(mediaTime, segment.media.start));
  }
  return CMTimeMapTimeFromRangeToRange(mediaTime, segment.media, segment.target);
}

}  // namespace

TrackFrameSource::TrackFrameSource(Setup setup)
    : setup_(std::move(setup)),
      end_(CMTimeRangeGetEnd(setup_.range)),
      segments_(setup_.track->mediaSegments()),
      pool_(std::make_shared<VideoDecoderPool>(setup_.opener)),
      time_(setup_.range.start) {}

TrackFrameSource::~TrackFrameSource() {
  // Decoders may take a moment to close, and the last reference may drop on the main thread.
  dispatch_async(dispatch_get_global_queue(QOS_CLASS_UTILITY), [pool = std::move(pool_)]() mutable { pool.reset(); });
}

void TrackFrameSource::cancel() {
  isCancelled_ = true;
  pool_->cancel();
}

CMTime TrackFrameSource::endOf(const MediaSegment& segment) const { return CMTimeMinimum(CMTimeRangeGetEnd(segment.target), end_); }

const MediaSegment* TrackFrameSource::findSegment() {
  for (; index_ < segments_.size(); ++index_, isInSegment_ = false) {
    const MediaSegment& segment = segments_[index_];
    if (!isInSegment_) time_ = CMTimeMaximum(segment.target.start, setup_.range.start);
    if (!segment.isEmpty() && CMTimeCompare(time_, endOf(segment)) < 0) return &segment;
  }
  return nullptr;
}

CMSampleBufferRef TrackFrameSource::next(std::optional<NSError>* error) {
  while (const MediaSegment* segment = isCancelled_ ? nullptr : findSegment()) {
    const std::optional<VideoFrame> frame = decode(*segment, error);
    if (!frame) {
      if (isCancelled_ && error) error->reset();
      break;
    }
    const CMTime start = time_, end = endOf(*segment);
    isInSegment_ = true;
    time_ = CMTIME_IS_NUMERIC(mediaTime_) ? CMTimeMinimum(assetTime(*segment, mediaTime_), end) : end;
    // Frames closer together than times can tell are one.
    if (CMTimeCompare(time_, start) <= 0) continue;
    const CMTime duration = CMTimeSubtract(time_, start);
    return makeSample(frame->picture, start, duration);
  }
  index_ = segments_.size();
  pool_->close();
  return nullptr;
}

std::optional<VideoFrame> TrackFrameSource::decode(const MediaSegment& segment, std::optional<NSError>* error) {
  pool_->beginRound();
  std::optional<NSError> cause;
  std::optional<VideoFrame> frame;
  VideoDecoder* decoder = pool_->acquire(0, segment.file, segment.trackIndex, &cause);
  if (!isInSegment_) {
    const CMTimeScale scale = segment.file->tracks()[static_cast<size_t>(segment.trackIndex)].naturalTimeScale;
    mediaTime_ = CMTimeMake(SegmentWalk::mediaTime(segment, ExactTime(time_)).floorTicks(scale), scale);
  }
  if (decoder) frame = decoder->frameAt(mediaTime_, &cause);
  if (frame && frame->picture) {
    learnNextFrame(*decoder, CMTimeMaximum(mediaTime_, frame->mediaTime));
    return frame;
  }
  if (error) *error = readingError(segment.file->path(), CMTimeGetSeconds(time_), cause);
  return std::nullopt;
}

void TrackFrameSource::learnNextFrame(VideoDecoder& decoder, CMTime mediaTime) {
  mediaTime_ = decoder.nextFrameTime();
  // A decoder that has met the very frame may not have looked beyond it; a moment later it has to.
  while (CMTIME_IS_INVALID(mediaTime_) && !isCancelled_) {
    mediaTime = CMTimeAdd(mediaTime, CMTimeMake(1, mediaTime.timescale));
    const std::optional<VideoFrame> frame = decoder.frameAt(mediaTime, nullptr);
    if (!frame) return;
    mediaTime_ = CMTimeCompare(frame->mediaTime, mediaTime) == 0 ? mediaTime : decoder.nextFrameTime();
  }
}

CMSampleBufferRef TrackFrameSource::makeSample(PictureRef picture, const CMTime& time, const CMTime& duration) {
  const int width = setup_.width > 0 ? setup_.width : picture->width;
  const int height = setup_.height > 0 ? setup_.height : picture->height;
  if (width != picture->width || height != picture->height) {
    const CGAffineTransform stretch{static_cast<double>(width) / picture->width,   0, 0,
                                    static_cast<double>(height) / picture->height, 0, 0};
    PictureColor color = picture->color;
    color.fullRange = false;
    const CGSize size{static_cast<double>(picture->width), static_cast<double>(picture->height)};
    picture = scaler_.compose({{picture, size, stretch}}, width, height, color);
  }
  return picture ? videoSample(picture, setup_.pixelFormat, time, duration) : nullptr;
}

}  // namespace vidloom
