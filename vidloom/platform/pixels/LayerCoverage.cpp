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

double LayerCoverage::covered(const Edge& from, const Edge& to, double x, double y) {
  const double past = std::clamp(from.perX * x + from.perY * y + from.constant + 0.5, 0.0, 1.0);
  const double before = std::clamp(to.perX * x + to.perY * y + to.constant + 0.5, 0.0, 1.0);
  return std::max(0.0, past + before - 1);
}

int LayerCoverage::at(int x, int y) const {
  const double part = covered(edges_[0], edges_[1], x + 0.5, y + 0.5) * covered(edges_[2], edges_[3], x + 0.5, y + 0.5);
  return static_cast<int>(std::lround(256 * part));
}

SampleSpan LayerCoverage::spanAtDistance(double distance, int y, const SampleSpan& within) const {
  double begin = within.begin, end = within.end;
  for (const Edge& edge : edges_) {
    const double atZero = edge.perX * 0.5 + edge.perY * (y + 0.5) + edge.constant - distance;
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

SampleSpan LayerCoverage::touched(int y, const SampleSpan& within) const { return spanAtDistance(-0.5 + kNegligible, y, within); }

SampleSpan LayerCoverage::filled(int y, const SampleSpan& within) const { return spanAtDistance(0.5 - kNegligible, y, within); }

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
