#include "hostkit/WaveformPicture.h"

#include <algorithm>
#include <cmath>
#include <vector>

#include "hostkit/PixelCanvas.h"
#include "hostkit/PlotFrame.h"
#include "hostkit/PlotText.h"
#include "hostkit/SvgCanvas.h"

namespace vidloom {
namespace {

constexpr int kWidth = 1200, kHeight = 340;
constexpr CGRect kArea{{66, 38}, {1100, 264}};
constexpr uint32_t kNoSoundColor = 0xf0f0f0ff, kSoundColor = 0xffffffff, kGridColor = 0xdcdcdcff;
constexpr uint32_t kLoudColor = 0x9cc3e6ff, kMeanColor = 0x1f5fa8ff;
constexpr const char* kLegend = "; a column shows their mean and, lighter, the loudest";
constexpr double kNarrowestBar = 3;  ///< in pixels; narrower values share columns

/// What is drawn for some values, as parts of the height above the middle: -1 to 1.
struct Extent {
  double low = 0, high = 0;
};

class WaveformPainter {
 public:
  WaveformPainter(const WaveformDrawing& drawing, PlotCanvas& canvas) : drawing_(drawing), canvas_(canvas) {
    frame_.area = kArea;
    frame_.toSeconds = std::max(drawing.endSeconds, soundEnd());
  }

  void paint() {
    canvas_.fill(kArea, kNoSoundColor);
    if (count() > 0) canvas_.fill(between(frame_.xOf(drawing_.startSeconds), frame_.xOf(soundEnd())), kSoundColor);
    const bool areBars = valueWidth() >= kNarrowestBar;
    drawPlotTitle(canvas_, frame_, drawing_.title, drawing_.description + (areBars || !hasLevels() ? "" : kLegend));
    drawLevelAxis();
    if (count() > 0) areBars ? drawBars() : drawColumns();
    drawTimeAxis(canvas_, frame_);
  }

 private:
  bool hasLevels() const { return !drawing_.levels.empty(); }
  size_t count() const { return hasLevels() ? drawing_.levels.size() : drawing_.peaks.size() / 2; }
  double soundEnd() const { return drawing_.startSeconds + static_cast<double>(count()) * drawing_.secondsPerValue; }
  double valueWidth() const { return frame_.xOf(drawing_.secondsPerValue) - frame_.xOf(0); }
  static double yOf(double height) { return kArea.origin.y + kArea.size.height / 2 * (1 - height); }
  static CGRect between(double left, double right) { return CGRectMake(left, kArea.origin.y, right - left, kArea.size.height); }

  static double heightOf(float level) { return std::clamp(1.0 - static_cast<double>(level), 0.0, 1.0); }

  Extent extentOf(size_t index) const {
    if (hasLevels()) {
      const double height = heightOf(drawing_.levels[index]);
      return {-height, height};
    }
    constexpr double kFullScale = 32768;
    return {drawing_.peaks[2 * index] / kFullScale, drawing_.peaks[2 * index + 1] / kFullScale};
  }

  /// Never thinner than a pixel: silence shows as a line.
  static PlotColumn columnOf(const Extent& extent) {
    double top = yOf(extent.high), bottom = yOf(extent.low);
    if (bottom - top < 1) {
      const double middle = (top + bottom) / 2;
      top = middle - 0.5;
      bottom = middle + 0.5;
    }
    return {top, bottom, true};
  }

  void drawBars() {
    constexpr double kShareOfBar = 0.8;
    const double width = valueWidth(), first = frame_.xOf(drawing_.startSeconds);
    for (size_t i = 0; i < count(); ++i) {
      const PlotColumn column = columnOf(extentOf(i));
      const double left = first + width * (static_cast<double>(i) + (1 - kShareOfBar) / 2);
      canvas_.fill(CGRectMake(left, column.top, width * kShareOfBar, column.bottom - column.top), kMeanColor);
    }
  }

  /// A column takes every value that reaches into it, so none is lost between two columns.
  void drawColumns() {
    std::vector<PlotColumn> outer(static_cast<size_t>(kArea.size.width)), means(outer.size());
    const double width = valueWidth(), first = frame_.xOf(drawing_.startSeconds) - kArea.origin.x;
    for (size_t x = 0; x < outer.size(); ++x) {
      const double from = std::max(0.0, (static_cast<double>(x) - first) / width);
      const double to = std::min(static_cast<double>(count()), (static_cast<double>(x) + 1 - first) / width);
      if (from < to) reduce(from, to, outer[x], means[x]);
    }
    canvas_.band(kArea.origin.x, outer, hasLevels() ? kLoudColor : kMeanColor);
    if (hasLevels()) canvas_.band(kArea.origin.x, means, kMeanColor);
  }

  void reduce(double from, double to, PlotColumn& outer, PlotColumn& mean) const {
    Extent widest{1, -1};
    double sum = 0;
    for (auto i = static_cast<size_t>(from); static_cast<double>(i) < to; ++i) {
      const Extent extent = extentOf(i);
      widest = {std::min(widest.low, extent.low), std::max(widest.high, extent.high)};
      const auto begin = static_cast<double>(i);
      sum += extent.high * (std::min(to, begin + 1) - std::max(from, begin));
    }
    outer = columnOf(widest);
    mean = columnOf({-sum / (to - from), sum / (to - from)});
  }

  void drawLevelAxis() {
    constexpr int kSteps = 5;
    for (int i = -kSteps; i <= kSteps; ++i) {
      const double y = yOf(static_cast<double>(i) / kSteps);
      canvas_.fill(CGRectMake(kArea.origin.x, y - 0.5, kArea.size.width, 1), kGridColor);
      drawLeftTick(canvas_, frame_, y, labelOf(i));
    }
  }

  std::string labelOf(int step) const {
    return drawing_.peaks.empty() ? plotNumber(10.0 * (std::abs(step) - 5), 0) + " dB" : plotNumber(step / 5.0, 1);
  }

  const WaveformDrawing& drawing_;
  PlotCanvas& canvas_;
  PlotFrame frame_;
};

}  // namespace

std::string svgOfWaveform(const WaveformDrawing& drawing) {
  SvgCanvas canvas(kWidth, kHeight);
  WaveformPainter(drawing, canvas).paint();
  return canvas.document();
}

CGImageRef pictureOfWaveform(const WaveformDrawing& drawing) {
  PixelCanvas canvas(kWidth, kHeight);
  WaveformPainter(drawing, canvas).paint();
  return canvas.image();
}

}  // namespace vidloom
