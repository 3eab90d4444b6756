#include "vidloom/platform/reading/RenderContext.h"

#include "vidloom/platform/reading/OutputColor.h"

namespace vidloom {

RenderContext::RenderContext(int width, int height, float renderScale, OSType pixelFormat, PictureColor color)
    : width_(width), height_(height), renderScale_(renderScale), color_(std::move(color)) {
  const NSDictionary attributes{{kCVPixelBufferPixelFormatTypeKey, int64_t{pixelFormat}},
                                {kCVPixelBufferWidthKey, int64_t{width}},
                                {kCVPixelBufferHeightKey, int64_t{height}}};
  CVPixelBufferPoolCreate({}, attributes, &pool_);
}

CVPixelBufferRef RenderContext::newPixelBuffer() const {
  CVPixelBufferRef buffer;
  if (pool_) CVPixelBufferPoolCreatePixelBuffer(pool_, &buffer);
  if (buffer) attachColor(buffer, color_);
  return buffer;
}

}  // namespace vidloom
