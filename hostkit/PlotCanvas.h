// What diagrams are drawn on: a bitmap or an SVG text.
#pragma once

#include <cstdint>
#include <span>
#include <string>

#include "vidloom/platform/coregraphics/CGGeometry.h"

namespace vidloom {

enum class PlotAnchor : uint8_t { left, middle, right };

/// A column of a band, from top to bottom; nothing where isDrawn is false.
struct PlotColumn {
  double top = 0, bottom = 0;
  bool isDrawn = false;
};

/// Units are pixels from the top left. Colours are 0xRRGGBBAA, not premultiplied.
class PlotCanvas {
 public:
  virtual ~PlotCanvas() = default;
  virtual void fill(const CGRect& area, uint32_t colorRGBA) = 0;
  /// Columns of width 1 side by side, the first at x = left.
  virtual void band(double left, std::span<const PlotColumn> columns, uint32_t colorRGBA) = 0;
  /// In the host kit's font; the anchor and the baseline are at the point. Whatever is no text in UTF-8 is replaced.
  virtual void text(const std::string& text, const CGPoint& point, PlotAnchor anchor, double sizePixels, bool isBold) = 0;

  static double widthOfText(const std::string& text, double sizePixels, bool isBold = false);
  /// Cut with an ellipsis where it is wider.
  static std::string shortened(const std::string& text, double mostPixels, double sizePixels, bool isBold = false);
};

}  // namespace vidloom
