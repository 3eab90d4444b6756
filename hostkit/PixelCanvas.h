// Diagrams as bitmaps.
#pragma once

#include <memory>

#include "hostkit/PlotCanvas.h"
#include "vidloom/platform/coregraphics/CGImage.h"

namespace vidloom {

/// White where nothing was drawn.
class PixelCanvas : public PlotCanvas {
 public:
  PixelCanvas(int width, int height);
  ~PixelCanvas() override;
  void fill(const CGRect& area, uint32_t colorRGBA) override;
  void band(double left, std::span<const PlotColumn> columns, uint32_t colorRGBA) override;
  void text(const std::string& text, const CGPoint& point, PlotAnchor anchor, double sizePixels, bool isBold) override;
  /// Opaque pixels, B, G, R and an unused byte, put in place as they are.
  void pixels(int left, int top, int width, int height, std::span<const uint32_t> rows);
  /// What was drawn; nothing may be drawn afterwards. Null where memory has run out.
  CGImageRef image() const;

 private:
  struct Surface;
  std::unique_ptr<Surface> surface_;
  int width_, height_;
};

}  // namespace vidloom
