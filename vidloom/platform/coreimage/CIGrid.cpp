#include "vidloom/platform/coreimage/CIGrid.h"

#include <algorithm>
#include <cmath>

namespace vidloom {

namespace {

// Edges this near to the grid are on it.
constexpr double kSnap = 1.0 / 1024;

int sampleAt(double position) {
  constexpr double kFarthest = 1 << 24;
  return static_cast<int>(std::clamp(position, -kFarthest, kFarthest));
}

}  // namespace

CGRect flippedRect(const CGRect& rect) {
  if (CGRectIsNull(rect) || CGRectIsInfinite(rect)) return rect;
  return CGRectMake(rect.origin.x, -CGRectGetMaxY(rect), rect.size.width, std::abs(rect.size.height));
}

CGAffineTransform flippedTransform(const CGAffineTransform& transform) {
  const auto& [a, b, c, d, tx, ty] = transform;
  return {a, -b, -c, d, tx, -ty};
}

SampleRect samplesTouched(const CGRect& rect) {
  if (CGRectIsEmpty(rect)) return {};
  return {sampleAt(std::floor(CGRectGetMinX(rect) + kSnap)), sampleAt(std::floor(CGRectGetMinY(rect) + kSnap)),
          sampleAt(std::ceil(CGRectGetMaxX(rect) - kSnap)), sampleAt(std::ceil(CGRectGetMaxY(rect) - kSnap))};
}

SampleRect samplesCovered(const CGRect& rect) {
  if (CGRectIsEmpty(rect)) return {};
  return {sampleAt(std::ceil(CGRectGetMinX(rect) - kSnap)), sampleAt(std::ceil(CGRectGetMinY(rect) - kSnap)),
          sampleAt(std::floor(CGRectGetMaxX(rect) + kSnap)), sampleAt(std::floor(CGRectGetMaxY(rect) + kSnap))};
}

CGRect rectOf(const SampleRect& samples) { return CGRectMake(samples.x0, samples.y0, samples.width(), samples.height()); }

SampleRect intersection(const SampleRect& one, const SampleRect& other) {
  const SampleRect both{std::max(one.x0, other.x0), std::max(one.y0, other.y0), std::min(one.x1, other.x1),
                        std::min(one.y1, other.y1)};
  return both.isEmpty() ? SampleRect{} : both;
}

SampleRect moved(const SampleRect& samples, int x, int y) {
  return {samples.x0 + x, samples.y0 + y, samples.x1 + x, samples.y1 + y};
}

bool isWholeShift(const CGAffineTransform& map) {
  return map.a == 1 && map.b == 0 && map.c == 0 && map.d == 1 && map.tx == std::round(map.tx) && map.ty == std::round(map.ty);
}

SampleRect samplesBefore(const CGAffineTransform& map, const SampleRect& after) {
  const CGAffineTransform back = CGAffineTransformInvert(map);
  const CGRect exact = CGRectApplyAffineTransform(rectOf(after), back);
  if (isWholeShift(map)) return samplesTouched(exact);
  const double reach = 2 + 2 * std::max({std::abs(back.a), std::abs(back.b), std::abs(back.c), std::abs(back.d)});
  return samplesTouched(
      CGRectMake(exact.origin.x - reach, exact.origin.y - reach, exact.size.width + 2 * reach, exact.size.height + 2 * reach));
}

}  // namespace vidloom
