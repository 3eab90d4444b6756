// Diagrams as SVG texts.
#pragma once

#include "hostkit/PlotCanvas.h"

namespace vidloom {

class SvgCanvas : public PlotCanvas {
 public:
  SvgCanvas(int width, int height);
  void fill(const CGRect& area, uint32_t colorRGBA) override;
  void band(double left, std::span<const PlotColumn> columns, uint32_t colorRGBA) override;
  void text(const std::string& text, const CGPoint& point, PlotAnchor anchor, double sizePixels, bool isBold) override;
  /// The whole file.
  std::string document() const { return body_ + "</svg>\n"; }

 private:
  std::string body_;
};

}  // namespace vidloom
