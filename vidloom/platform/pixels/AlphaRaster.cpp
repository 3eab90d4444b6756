#include "vidloom/platform/pixels/AlphaRaster.h"

#include <algorithm>
#include <cmath>
#include <new>
#include <vector>

namespace vidloom {
namespace {

constexpr double kOpaque = 256;
constexpr float kOpaqueAlpha = 255;
constexpr int kAlphaPlane = 3;
constexpr float kSmallestWeight = 1e-4F;

/// A colour times its weight, and the weight: what may be added up.
struct Weighted {
  float value = 0, weight = 0;

  void add(const Weighted& other, float share) {
    value += other.value * share;
    weight += other.weight * share;
  }
};

struct WeightedPlane {
  int width = 0, height = 0;
  std::vector<Weighted> samples;

  WeightedPlane(int w, int h) : width(w), height(h), samples(static_cast<size_t>(w) * h) {}
  Weighted* row(int y) { return samples.data() + static_cast<size_t>(y) * width; }
  const Weighted* row(int y) const { return samples.data() + static_cast<size_t>(y) * width; }
  const Weighted& near(int x, int y) const { return row(std::clamp(y, 0, height - 1))[std::clamp(x, 0, width - 1)]; }
};

/// Samples of a source axis with their shares in one of the reduced axis: a tent as wide as the reduction.
struct Tap {
  int first = 0;
  std::vector<float> shares;
};

std::vector<Tap> tapsOf(int length, int reduced, double scale) {
  std::vector<Tap> taps(static_cast<size_t>(reduced));
  const double radius = 1 / scale;
  for (int i = 0; i < reduced; ++i) {
    const double middle = (i + 0.5) / scale;
    Tap& tap = taps[static_cast<size_t>(i)];
    tap.first = std::clamp(static_cast<int>(std::ceil(middle - radius - 0.5)), 0, length - 1);
    const int last = std::clamp(static_cast<int>(std::floor(middle + radius - 0.5)), tap.first, length - 1);
    double sum = 0;
    for (int j = tap.first; j <= last; ++j) sum += std::max(1e-6, 1 - std::abs(j + 0.5 - middle) * scale);
    for (int j = tap.first; j <= last; ++j) {
      tap.shares.push_back(static_cast<float>(std::max(1e-6, 1 - std::abs(j + 0.5 - middle) * scale) / sum));
    }
  }
  return taps;
}

/// The weights of a row: alpha as it is, for chroma the mean over the four pixels of a sample.
void weightsOf(const Picture& picture, bool chroma, int y, std::vector<float>& weights) {
  if (!picture.hasAlpha()) return std::fill(weights.begin(), weights.end(), kOpaqueAlpha);
  const PlaneView alpha = planeOf(picture, kAlphaPlane);
  const auto count = static_cast<int>(weights.size());
  if (!chroma) {
    std::copy_n(alpha.row(y), count, weights.begin());
    return;
  }
  const uint8_t* const upper = alpha.row(2 * y);
  const uint8_t* const lower = alpha.row(std::min(2 * y + 1, alpha.height - 1));
  for (int x = 0; x < count; ++x) {
    const int left = 2 * x, right = std::min(2 * x + 1, alpha.width - 1);
    weights[static_cast<size_t>(x)] = static_cast<float>(upper[left] + upper[right] + lower[left] + lower[right]) / 4;
  }
}

/// The plane, reduced by factors of at most 1.
WeightedPlane reducedPlane(const Picture& picture, int index, double across, double down) {
  const PlaneView plane = planeOf(picture, index);
  const auto sides = [](int length, double scale) { return std::max(1, static_cast<int>(std::ceil(length * scale))); };
  const auto columns = tapsOf(plane.width, sides(plane.width, across), across);
  const auto rows = tapsOf(plane.height, sides(plane.height, down), down);
  WeightedPlane narrow(static_cast<int>(columns.size()), plane.height);
  std::vector<float> weights(static_cast<size_t>(plane.width));
  for (int y = 0; y < plane.height; ++y) {
    weightsOf(picture, index > 0, y, weights);
    for (int x = 0; x < narrow.width; ++x) {
      const Tap& tap = columns[static_cast<size_t>(x)];
      for (size_t j = 0; j < tap.shares.size(); ++j) {
        const size_t from = static_cast<size_t>(tap.first) + j;
        narrow.row(y)[x].add({static_cast<float>(plane.row(y)[from]) * weights[from], weights[from]}, tap.shares[j]);
      }
    }
  }
  if (down >= 1) return narrow;
  WeightedPlane reduced(narrow.width, static_cast<int>(rows.size()));
  for (int y = 0; y < reduced.height; ++y) {
    const Tap& tap = rows[static_cast<size_t>(y)];
    for (size_t j = 0; j < tap.shares.size(); ++j) {
      const Weighted* const from = narrow.row(tap.first + static_cast<int>(j));
      for (int x = 0; x < reduced.width; ++x) reduced.row(y)[x].add(from[x], tap.shares[j]);
    }
  }
  return reduced;
}

/// Between the four samples around a point; beyond the edges the edge samples go on.
Weighted sampleAt(const WeightedPlane& plane, const CGPoint& point) {
  const double x = std::clamp(point.x - 0.5, -1.0, double(plane.width)), y = std::clamp(point.y - 0.5, -1.0, double(plane.height));
  const int left = static_cast<int>(std::floor(x)), top = static_cast<int>(std::floor(y));
  const auto right = static_cast<float>(x - left), lower = static_cast<float>(y - top);
  Weighted sum;
  sum.add(plane.near(left, top), (1 - right) * (1 - lower));
  sum.add(plane.near(left + 1, top), right * (1 - lower));
  sum.add(plane.near(left, top + 1), (1 - right) * lower);
  sum.add(plane.near(left + 1, top + 1), right * lower);
  return sum;
}

uint8_t code(float value) { return static_cast<uint8_t>(std::lround(std::clamp(value, 0.0F, kOpaqueAlpha))); }

/// Draws one plane, and with the luma plane the alpha, of the output's samples from `x0`, `y0` on.
void rasterPlane(const Picture& picture, int index, const LayerPlacement& placement, int x0, int y0, MutablePicture& output) {
  const bool chroma = index > 0;
  CGAffineTransform map = chroma ? chromaMap(placement.map) : placement.map;
  const double across = std::min(1.0, std::hypot(map.a, map.b)), down = std::min(1.0, std::hypot(map.c, map.d));
  const WeightedPlane source = reducedPlane(picture, index, across, down);
  map = {map.a / across, map.b / across, map.c / down, map.d / down, map.tx, map.ty};
  const CGAffineTransform inverse = CGAffineTransformInvert(map);
  const LayerCoverage coverage = placement.coverage(chroma);
  const MutablePlaneView plane = planeOf(output, index);
  for (int y = 0; y < plane.height; ++y) {
    for (int x = 0; x < plane.width; ++x) {
      const CGPoint middle = CGPointMake(x + x0 + 0.5, y + y0 + 0.5);
      const Weighted sample = sampleAt(source, CGPointApplyAffineTransform(middle, inverse));
      plane.row(y)[x] = sample.weight < kSmallestWeight ? (chroma ? 128 : 16) : code(sample.value / sample.weight);
      if (chroma) continue;
      const double covered = coverage.at(x + x0, y + y0) / kOpaque * (placement.opacity / kOpaque);
      planeOf(output, kAlphaPlane).row(y)[x] = code(sample.weight * static_cast<float>(covered));
    }
  }
}

}  // namespace

std::shared_ptr<MutablePicture> rasterAlpha(const Picture& picture, const LayerPlacement& placement, const SampleRect& bounds,
                                            PicturePool& pool) {
  auto output = pool.make(bounds.width(), bounds.height(), picture.color, true);
  if (!output) return nullptr;
  try {
    rasterPlane(picture, 0, placement, bounds.x0, bounds.y0, *output);
    for (const int chroma : {1, 2}) rasterPlane(picture, chroma, placement, bounds.x0 / 2, bounds.y0 / 2, *output);
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
  return output;
}

}  // namespace vidloom
