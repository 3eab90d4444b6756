// What diagrams over time have in common.
#pragma once

#include <string>

#include "hostkit/PlotCanvas.h"

namespace vidloom {

inline constexpr double kPlotTextSize = 12;
inline constexpr uint32_t kPlotAxisColor = 0x666666ff;

struct PlotFrame {
  CGRect area;  ///< of the picture, whole pixels
  double fromSeconds = 0, toSeconds = 0;

  double xOf(double seconds) const;
  double right() const { return area.origin.x + area.size.width; }
  double bottom() const { return area.origin.y + area.size.height; }
};

/// In one line above the frame: the title, shortened where it must be, and the description to the right.
void drawPlotTitle(PlotCanvas& canvas, const PlotFrame& frame, const std::string& title, const std::string& description);
/// Below the frame.
void drawTimeAxis(PlotCanvas& canvas, const PlotFrame& frame);
/// A mark and a label left of the frame.
void drawLeftTick(PlotCanvas& canvas, const PlotFrame& frame, double y, const std::string& label);

}  // namespace vidloom
