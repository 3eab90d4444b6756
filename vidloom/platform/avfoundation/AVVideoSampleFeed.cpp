#include "vidloom/platform/avfoundation/AVVideoSampleFeed.h"

#include <utility>

namespace vidloom {

std::string AVVideoSampleFeed::problemWith(const CMSampleBufferRef& sample) const {
  return CMSampleBufferGetImageBuffer(sample) ? "" : "the sample holds no picture";
}

bool AVVideoSampleFeed::append(const CMSampleBufferRef& sample, const CMTime& time, MovieWriter& movie,
                               std::optional<NSError>* error) {
  const PictureRef picture = CVPixelBufferCopyPicture(CMSampleBufferGetImageBuffer(sample));
  const CMTime duration = CMSampleBufferGetDuration(sample);
  if (CMTimeCompare(time, kCMTimeZero) < 0) {
    early_ = picture;
    earlyEnd_ = CMTimeAdd(time, duration);
    return true;
  }
  const PictureRef early = std::exchange(early_, nullptr);
  const bool isOnScreen = early && CMTimeCompare(time, kCMTimeZero) > 0;
  if (isOnScreen && !movie.appendVideo(early, kCMTimeZero, duration, error)) return false;
  return movie.appendVideo(picture, time, duration, error);
}

bool AVVideoSampleFeed::end(MovieWriter& movie, std::optional<NSError>* error) {
  const PictureRef early = std::exchange(early_, nullptr);
  const bool isOnScreen = early && CMTIME_IS_NUMERIC(earlyEnd_) && CMTimeCompare(earlyEnd_, kCMTimeZero) > 0;
  if (isOnScreen && !movie.appendVideo(early, kCMTimeZero, earlyEnd_, error)) return false;
  return movie.endVideo(error);
}

}  // namespace vidloom
