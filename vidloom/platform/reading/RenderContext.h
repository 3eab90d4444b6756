#pragma once

#include "vidloom/platform/avfoundation/AVVideoCompositing.h"
#include "vidloom/platform/corevideo/CVPixelBufferPool.h"
#include "vidloom/platform/pixels/Picture.h"

namespace vidloom {

/// The context of a custom compositor: buffers of one size, format and colour.
class RenderContext : public AVVideoCompositionRenderContext {
 public:
  RenderContext(int width, int height, float renderScale, OSType pixelFormat, PictureColor color);
  CGSize size() const override { return CGSizeMake(width_, height_); }
  float renderScale() const override { return renderScale_; }
  CVPixelBufferRef newPixelBuffer() const override;
  /// That of the output.
  const PictureColor& color() const { return color_; }

 private:
  const int width_, height_;
  const float renderScale_;
  const PictureColor color_;
  CVPixelBufferPoolRef pool_;
};

}  // namespace vidloom
