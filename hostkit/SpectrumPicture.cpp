#include "hostkit/SpectrumPicture.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <utility>

#include "hostkit/AxisTicks.h"
#include "hostkit/PixelCanvas.h"
#include "hostkit/PlotFrame.h"
#include "hostkit/PlotText.h"

namespace vidloom {
namespace {

constexpr int kWidth = 1180, kHeight = 630;
constexpr int kColumns = 1000, kRows = 512;
constexpr CGRect kArea{{76, 38}, {kColumns, kRows}};
constexpr double kQuietestDecibels = -100;
constexpr uint32_t kNoSound = 0xe4e4e4;

/// 0 to 1, dark to light: every colour is lighter than the one before.
uint32_t colorOf(double share) {
  constexpr std::array<std::array<double, 3>, 6> kStops{
      {{4, 6, 22}, {32, 30, 110}, {96, 44, 150}, {204, 72, 96}, {246, 164, 56}, {255, 250, 205}}};
  const double place = std::clamp(share, 0.0, 1.0) * (kStops.size() - 1);
  const size_t stop = std::min(static_cast<size_t>(place), kStops.size() - 2);
  const double part = place - static_cast<double>(stop);
  uint32_t color = 0;
  for (size_t i = 0; i < 3; ++i) {
    const double value = kStops.at(stop).at(i) * (1 - part) + kStops.at(stop + 1).at(i) * part;
    color = color << 8U | static_cast<uint32_t>(std::lround(value));
  }
  return color;
}

double shareOf(double decibels) { return 1 - decibels / kQuietestDecibels; }

void drawLegend(PlotCanvas& canvas) {
  constexpr double kLeft = 76 + kColumns + 26, kBarWidth = 16, kBarHeight = 400, kTop = 38 + 30;
  canvas.text("dB", CGPointMake(kLeft + kBarWidth / 2, kTop - 10), PlotAnchor::middle, kPlotTextSize, true);
  for (int y = 0; y < static_cast<int>(kBarHeight); ++y) {
    canvas.fill(CGRectMake(kLeft, kTop + y, kBarWidth, 1), colorOf(1 - (y + 0.5) / kBarHeight) << 8U | 0xffU);
  }
  constexpr int kSteps = 5;
  for (int i = 0; i <= kSteps; ++i) {
    const double decibels = kQuietestDecibels * i / kSteps;
    const double y = kTop + kBarHeight * (1 - shareOf(decibels));
    canvas.fill(CGRectMake(kLeft + kBarWidth, y - 0.5, 5, 1), kPlotAxisColor);
    canvas.text(plotNumber(decibels, 0), CGPointMake(kLeft + kBarWidth + 8, y + 4), PlotAnchor::left, kPlotTextSize, false);
  }
}

}  // namespace

SpectrumPicture::SpectrumPicture(Setup setup) : setup_(std::move(setup)) {
  axisEnd_ = std::max(setup_.endSeconds, setup_.soundEndSeconds);
  cells_.assign(size_t{kColumns} * kRows, -1.0f);
  reachedSeconds_ = setup_.soundStartSeconds;
  makeRows();
}

/// A row of pixels takes every band that reaches into it, or, of bands higher than itself, the one that its middle lies in.
void SpectrumPicture::makeRows() {
  const auto bandAt = [this](double frequency) {
    const auto above = std::upper_bound(setup_.bandEdges.begin(), setup_.bandEdges.end(), frequency);
    const auto last = static_cast<ptrdiff_t>(setup_.bandEdges.size()) - 2;
    return static_cast<size_t>(std::clamp<ptrdiff_t>(above - setup_.bandEdges.begin() - 1, 0, last));
  };
  const double height = (setup_.maxFrequency - setup_.minFrequency) / kRows;
  const bool hasNarrowBands = setup_.bandEdges.size() - 1 > kRows;
  for (int row = 0; row < kRows; ++row) {
    const double bottom = setup_.minFrequency + row * height;
    if (hasNarrowBands) {
      bandsOfRows_.push_back({bandAt(bottom), bandAt(bottom + height) + 1});
    } else {
      const size_t band = bandAt(bottom + height / 2);
      bandsOfRows_.push_back({band, band + 1});
    }
  }
}

double SpectrumPicture::columnOf(double seconds) const { return axisEnd_ > 0 ? seconds / axisEnd_ * kColumns : 0; }

void SpectrumPicture::raise(std::vector<float>& cells, std::span<const float> rows, double fromColumn, double toColumn) {
  const auto begin = static_cast<size_t>(std::clamp(std::floor(fromColumn), 0.0, double{kColumns}));
  const auto end = static_cast<size_t>(std::clamp(std::ceil(toColumn), 0.0, double{kColumns}));
  for (size_t column = begin; column < end; ++column) {
    float* const cell = cells.data() + column * kRows;
    for (size_t row = 0; row < rows.size(); ++row) cell[row] = std::max(cell[row], rows[row]);
  }
}

void SpectrumPicture::add(std::span<const float> powers, double middleSeconds) {
  lastRows_.resize(kRows);
  for (size_t row = 0; row < lastRows_.size(); ++row) {
    const BandRange& bands = bandsOfRows_[row];
    lastRows_[row] =
        *std::max_element(powers.begin() + static_cast<ptrdiff_t>(bands.begin), powers.begin() + static_cast<ptrdiff_t>(bands.end));
  }
  const double end = std::min(middleSeconds + setup_.hopSeconds / 2, setup_.soundEndSeconds);
  raise(cells_, lastRows_, columnOf(reachedSeconds_), columnOf(end));
  reachedSeconds_ = std::max(reachedSeconds_, end);
}

CGImageRef SpectrumPicture::picture() const {
  std::vector<float> cells = cells_;
  raise(cells, lastRows_, columnOf(reachedSeconds_), columnOf(setup_.soundEndSeconds));
  std::vector<uint32_t> pixels(cells.size());
  for (size_t x = 0; x < kColumns; ++x) {
    for (size_t row = 0; row < kRows; ++row) {
      const float power = cells[x * kRows + row];
      const double decibels = power > 0 ? 10 * std::log10(power / setup_.fullScaleSinePower) : kQuietestDecibels;
      pixels[(kRows - 1 - row) * kColumns + x] = power < 0 ? kNoSound : colorOf(shareOf(decibels));
    }
  }
  PixelCanvas canvas(kWidth, kHeight);
  const PlotFrame frame{kArea, 0, axisEnd_};
  canvas.pixels(static_cast<int>(kArea.origin.x), static_cast<int>(kArea.origin.y), kColumns, kRows, pixels);
  drawPlotTitle(canvas, frame, setup_.title, setup_.description);
  drawTimeAxis(canvas, frame);
  const double range = setup_.maxFrequency - setup_.minFrequency;
  for (const AxisTick& tick : frequencyTicks(setup_.minFrequency, setup_.maxFrequency, 12)) {
    drawLeftTick(canvas, frame, frame.bottom() - (tick.at - setup_.minFrequency) / range * kRows, tick.label);
  }
  drawLegend(canvas);
  canvas.text("dB = 10 log10(power / power of a full-scale sine); where blocks share a column or bands a row, the largest power",
              CGPointMake(kArea.origin.x, kHeight - 18), PlotAnchor::left, kPlotTextSize, false);
  return canvas.image();
}

}  // namespace vidloom
