#include "vidloom/platform/pixels/LayerCoverage.h"

#include <algorithm>
#include <cmath>

namespace vidloom {
namespace {

constexpr double kNegligible = 1.0 / 512;

int clampedFloor(double value, int low, int high) {
  return static_cast<int>(std::clamp(std::floor(value), double(low), double(high)));
}
int clampedCeil(double value, int low, int high) {
  return static_cast<int>(std::clamp(std::ceil(value), double(low), double(high)));
}

}  // namespace

LayerCoverage::LayerCoverage(const CGSize& size, const CGAffineTransform& map) {
  const double determinant = map.a * map.d - map.b * map.c;
  // Rows of the inverse: u = a x + c y + tx, v = b x + d y + ty.
  const CGAffineTransform inverse{map.d / determinant,
                                  -map.b / determinant,
                                  -map.c / determinant,
                                  map.a / determinant,
                                  (map.c * map.ty - map.d * map.tx) / determinant,
                                  (map.b * map.tx - map.a * map.ty) / determinant};
  const double perU = std::hypot(inverse.a, inverse.c);
  const double perV = std::hypot(inverse.b, inverse.d);
  edges_[0] = {inverse.a / perU, inverse.c / perU, inverse.tx / perU};
  edges_[1] = {-edges_[0].perX, -edges_[0].perY, size.width / perU - edges_[0].constant};
  edges_[2] = {inverse.b / perV, inverse.d / perV, inverse.ty / perV};
  edges_[3] = {-edges_[2].perX, -edges_[2].perY, size.height / perV - edges_[2].constant};
  const double xs[] = {0, map.a * size.width, map.c * size.height, map.a * size.width + map.c * size.height};
  const double ys[] = {0, map.b * size.width, map.d * size.height, map.b * size.width + map.d * size.height};
  const auto [left, right] = std::minmax_element(std::begin(xs), std::end(xs));
  const auto [top, bottom] = std::minmax_element(std::begin(ys), std::end(ys));
  bounds_ = CGRectMake(*left + map.tx, *top + map.ty, *right - *left, *bottom - *top);
}

void LayerCoverage::setHalfSamples(int column, int row) {
  halfColumn_ = column;
  halfRow_ = row;
}

// Distances count double where the sample is half as long across the edge.
double LayerCoverage::sharpness(const Edge& edge, int x, int y) const {
  const bool upright = std::abs(edge.perX) > std::abs(edge.perY);
  return (upright ? x >= 0 && x == halfColumn_ : y == halfRow_) ? 2 : 1;
}

double LayerCoverage::covered(const Edge& from, const Edge& to, int x, int y) const {
  const double column = middleOfColumn(x), row = middleOfRow(y);
  const double past = (from.perX * column + from.perY * row + from.constant) * sharpness(from, x, y);
  const double before = (to.perX * column + to.perY * row + to.constant) * sharpness(to, x, y);
  return std::max(0.0, std::clamp(past + 0.5, 0.0, 1.0) + std::clamp(before + 0.5, 0.0, 1.0) - 1);
}

int LayerCoverage::at(int x, int y) const {
  return static_cast<int>(std::lround(256 * covered(edges_[0], edges_[1], x, y) * covered(edges_[2], edges_[3], x, y)));
}

SampleSpan LayerCoverage::spanAtDistance(double distance, int y, const SampleSpan& within) const {
  double begin = within.begin, end = within.end;
  for (const Edge& edge : edges_) {
    const double atZero =
        edge.perX * 0.5 + edge.perY * middleOfRow(y) + edge.constant - distance / sharpness(edge, within.begin - 1, y);
    if (std::abs(edge.perX) < 1e-9) {
      if (atZero < 0) return {within.begin, within.begin};
    } else if (edge.perX > 0) {
      begin = std::max(begin, std::ceil(-atZero / edge.perX));
    } else {
      end = std::min(end, std::floor(atZero / -edge.perX) + 1);
    }
  }
  if (begin >= end) return {within.begin, within.begin};
  return {static_cast<int>(begin), static_cast<int>(end)};
}

// The half column is judged by itself.
SampleSpan LayerCoverage::withHalfColumn(SampleSpan span, int y, const SampleSpan& within, int atLeast) const {
  if (halfColumn_ < within.begin || halfColumn_ != within.end - 1) return span;
  span.end = std::min(span.end, halfColumn_);
  if (at(halfColumn_, y) < atLeast) return span;
  if (span.isEmpty()) return {halfColumn_, halfColumn_ + 1};
  if (span.end == halfColumn_) ++span.end;
  return span;
}

SampleSpan LayerCoverage::touched(int y, const SampleSpan& within) const {
  return withHalfColumn(spanAtDistance(-0.5 + kNegligible, y, within), y, within, 1);
}

SampleSpan LayerCoverage::filled(int y, const SampleSpan& within) const {
  return withHalfColumn(spanAtDistance(0.5 - kNegligible, y, within), y, within, 256);
}

bool LayerCoverage::isUpright() const {
  return (edges_[0].perX == 0 && edges_[2].perY == 0) || (edges_[0].perY == 0 && edges_[2].perX == 0);
}

SampleRect LayerCoverage::solid(const SampleRect& within) const {
  if (!isUpright() || within.isEmpty()) return {};
  const SampleSpan columns{within.x0, within.x1};
  SampleRect rect = within;
  while (rect.y0 < rect.y1 && filled(rect.y0, columns).isEmpty()) ++rect.y0;
  while (rect.y0 < rect.y1 && filled(rect.y1 - 1, columns).isEmpty()) --rect.y1;
  const SampleSpan span = filled(rect.y0, columns);
  rect.x0 = span.begin;
  rect.x1 = span.end;
  return rect;
}

bool LayerCoverage::fills(const SampleRect& rect) const {
  const SampleSpan columns{rect.x0, rect.x1};
  const SampleSpan top = filled(rect.y0, columns);
  const SampleSpan bottom = filled(rect.y1 - 1, columns);
  return top.begin == rect.x0 && top.end == rect.x1 && bottom.begin == rect.x0 && bottom.end == rect.x1;
}

SampleRect LayerCoverage::bounds(const SampleRect& within) const {
  return {clampedFloor(bounds_.origin.x + kNegligible, within.x0, within.x1),
          clampedFloor(bounds_.origin.y + kNegligible, within.y0, within.y1),
          clampedCeil(bounds_.origin.x + bounds_.size.width - kNegligible, within.x0, within.x1),
          clampedCeil(bounds_.origin.y + bounds_.size.height - kNegligible, within.y0, within.y1)};
}

}  // namespace vidloom
