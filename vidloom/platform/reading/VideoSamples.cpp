#include "vidloom/platform/reading/VideoSamples.h"

namespace vidloom {

CMSampleBufferRef videoSample(const CVPixelBufferRef& buffer, const CMTime& time, const CMTime& duration) {
  CMFormatDescriptionRef format;
  CMSampleBufferRef sample;
  if (CMVideoFormatDescriptionCreateForImageBuffer(buffer, &format) != 0) return nullptr;
  CMSampleBufferCreateForImageBuffer(buffer, true, format, {duration, time, kCMTimeInvalid}, &sample);
  return sample;
}

CMSampleBufferRef videoSample(const PictureRef& picture, OSType pixelFormat, const CMTime& time, const CMTime& duration) {
  const CVPixelBufferRef buffer = CVPixelBufferCreateWithPicture(picture, pixelFormat);
  return buffer ? videoSample(buffer, time, duration) : nullptr;
}

}  // namespace vidloom
