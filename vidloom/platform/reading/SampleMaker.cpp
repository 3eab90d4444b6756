#include "vidloom/platform/reading/SampleMaker.h"

#include "vidloom/platform/reading/OutputColor.h"
#include "vidloom/platform/reading/VideoSamples.h"

namespace vidloom {

SampleMaker::SampleMaker(int width, int height, PictureColor color, OSType pixelFormat, const CMTime& frameDuration)
    : width_(width), height_(height), color_(std::move(color)), pixelFormat_(pixelFormat), frameDuration_(frameDuration) {}

CMSampleBufferRef SampleMaker::fromLayers(const GatheredFrame& frame) {
  const PictureRef picture = compositor_.compose(frame.layers, width_, height_, color_);
  return picture ? videoSample(picture, pixelFormat_, frame.time, frameDuration_) : nullptr;
}

CMSampleBufferRef SampleMaker::fromBuffer(const CVPixelBufferRef& buffer, const CMTime& time) {
  attachColor(buffer, color_);
  const bool fits = CVPixelBufferGetWidth(buffer) == static_cast<size_t>(width_) &&
                    CVPixelBufferGetHeight(buffer) == static_cast<size_t>(height_);
  if (fits && CVPixelBufferGetPixelFormatType(buffer) == pixelFormat_ && hasMatrix(buffer, color_)) {
    return videoSample(buffer, time, frameDuration_);
  }
  const PictureRef picture = conformed(buffer);
  return picture ? videoSample(picture, pixelFormat_, time, frameDuration_) : nullptr;
}

PictureRef SampleMaker::conformed(const CVPixelBufferRef& buffer) {
  const PictureRef picture = CVPixelBufferCopyPicture(buffer);
  if (!picture || (picture->color == color_ && picture->width == width_ && picture->height == height_)) return picture;
  const CGSize size = CGSizeMake(picture->width, picture->height);
  return compositor_.compose({{picture, size, FrameGatherer::fitting(size, width_, height_)}}, width_, height_, color_);
}

}  // namespace vidloom
