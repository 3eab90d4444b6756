#include "vidloom/platform/pixels/AffineSampler.h"

#include <algorithm>
#include <cmath>

namespace vidloom {
namespace {

// Positions are worked out anew at such distances, which keeps the error of fixed-point steps far below a sample.
constexpr int kLongestRun = AffineSampler::kTileWidth;
constexpr double kLongestWay = 500;
constexpr double kFixedOne = 65536;

// What 32 bits can hold with some room to step on. Far outside only the nearest edge matters.
constexpr double kLargest = 32000;

int32_t toFixed(double value) { return static_cast<int32_t>(std::lround(std::clamp(value, -kLargest / 2, kLargest) * kFixedOne)); }

/// The source samples that bilinear sampling of the destination rectangle looks at.
SampleRect neededSource(const PlaneView& source, const CGAffineTransform& inverse, const SampleRect& destination) {
  double left = source.width, right = 0, top = source.height, bottom = 0;
  for (const CGPoint corner : {CGPointMake(destination.x0, destination.y0), CGPointMake(destination.x1, destination.y0),
                               CGPointMake(destination.x0, destination.y1), CGPointMake(destination.x1, destination.y1)}) {
    const CGPoint at = CGPointApplyAffineTransform(corner, inverse);
    left = std::min(left, at.x);
    right = std::max(right, at.x);
    top = std::min(top, at.y);
    bottom = std::max(bottom, at.y);
  }
  const auto inside = [](double value, int low, int high) {
    return static_cast<int>(std::clamp(value, double(low), double(high)));
  };
  const int x0 = inside(std::floor(left) - 2, 0, source.width - 1);
  const int y0 = inside(std::floor(top) - 2, 0, source.height - 1);
  return {x0, y0, inside(std::ceil(right) + 2, x0 + 1, source.width), inside(std::ceil(bottom) + 2, y0 + 1, source.height)};
}

}  // namespace

AffineSampler::AffineSampler(const PlaneView& source, const CGAffineTransform& map, const SampleRect& destination,
                             PicturePool& pool)
    : inverse_(CGAffineTransformInvert(map)) {
  const SampleRect needed = neededSource(source, inverse_, destination);
  const double longestStep = std::max(std::abs(inverse_.a), std::abs(inverse_.b));
  runLength_ = static_cast<int>(std::clamp(kLongestWay / longestStep, 1.0, double(kLongestRun)));
  inverse_.tx -= needed.x0;
  inverse_.ty -= needed.y0;
  const int stride = (needed.width() + 1) % 512 == 0 ? needed.width() + 33 : needed.width() + 1;
  pairs_ = pool.makeBytes(sizeof(uint16_t) * static_cast<size_t>(stride) * needed.height() + sizeof(uint32_t));
  if (!pairs_) return;
  auto* pairs = reinterpret_cast<uint16_t*>(pairs_.get());
  plane_ = {pairs, stride, needed.width(), needed.height()};
  for (int y = needed.y0; y < needed.y1; ++y, pairs += stride) {
    pairRows(pairs, source.row(y) + needed.x0, source.row(std::min(y + 1, needed.y1 - 1)) + needed.x0, needed.width());
    pairs[needed.width()] = pairs[needed.width() - 1];
  }
}

void AffineSampler::row(int y, int x0, int x1, uint8_t* destination) const {
  const FixedPoint step{toFixed(inverse_.a), toFixed(inverse_.b)};
  for (int x = x0; x < x1; x += runLength_) {
    const CGPoint at = CGPointApplyAffineTransform(CGPointMake(x + 0.5, y + 0.5), inverse_);
    sampleAlong(destination + (x - x0), std::min(runLength_, x1 - x), plane_, {toFixed(at.x - 0.5), toFixed(at.y - 0.5)}, step);
  }
}

}  // namespace vidloom
