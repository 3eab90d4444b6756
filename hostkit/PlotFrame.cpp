#include "hostkit/PlotFrame.h"

#include "hostkit/AxisTicks.h"

namespace vidloom {
namespace {

constexpr double kTickLength = 5, kMiddleOfText = 4;

}  // namespace

double PlotFrame::xOf(double seconds) const {
  const double range = toSeconds - fromSeconds;
  return area.origin.x + (range > 0 ? (seconds - fromSeconds) / range * area.size.width : 0);
}

void drawPlotTitle(PlotCanvas& canvas, const PlotFrame& frame, const std::string& title, const std::string& description) {
  constexpr double kGap = 24, kTitleSize = 14;
  const double y = frame.area.origin.y - 14;
  const double room = frame.area.size.width - kGap - PlotCanvas::widthOfText(description, kPlotTextSize);
  canvas.text(PlotCanvas::shortened(title, room, kTitleSize, true), CGPointMake(frame.area.origin.x, y), PlotAnchor::left,
              kTitleSize, true);
  canvas.text(description, CGPointMake(frame.right(), y), PlotAnchor::right, kPlotTextSize, false);
}

void drawTimeAxis(PlotCanvas& canvas, const PlotFrame& frame) {
  constexpr double kRoomOfALabel = 90;
  canvas.fill(CGRectMake(frame.area.origin.x, frame.bottom(), frame.area.size.width, 1), kPlotAxisColor);
  for (const AxisTick& tick :
       timeTicks(frame.fromSeconds, frame.toSeconds, static_cast<int>(frame.area.size.width / kRoomOfALabel))) {
    const double x = frame.xOf(tick.at);
    canvas.fill(CGRectMake(x - 0.5, frame.bottom(), 1, kTickLength), kPlotAxisColor);
    canvas.text(tick.label, CGPointMake(x, frame.bottom() + kTickLength + kPlotTextSize + 1), PlotAnchor::middle, kPlotTextSize,
                false);
  }
}

void drawLeftTick(PlotCanvas& canvas, const PlotFrame& frame, double y, const std::string& label) {
  canvas.fill(CGRectMake(frame.area.origin.x - kTickLength, y - 0.5, kTickLength, 1), kPlotAxisColor);
  canvas.text(label, CGPointMake(frame.area.origin.x - kTickLength - 3, y + kMiddleOfText), PlotAnchor::right, kPlotTextSize,
              false);
}

}  // namespace vidloom
