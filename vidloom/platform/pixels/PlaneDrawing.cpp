#include "vidloom/platform/pixels/PlaneDrawing.h"

#include <algorithm>
#include <cmath>
#include <memory>
#include <span>
#include <utility>
#include <vector>

#include "vidloom/platform/pixels/AffineSampler.h"
#include "vidloom/platform/pixels/PlaneHalving.h"
#include "vidloom/platform/pixels/PlaneScaler.h"

namespace vidloom {
namespace {

// Affine maps that reduce by more than this are preceded by an upright scaling, since bilinear sampling would skip samples.
constexpr double kSmallestAffineScale = 0.75;
constexpr int kBandRows = 32;

/// A plane and the memory that it may have of its own.
struct OwnedPlane {
  PlaneView view;
  std::shared_ptr<uint8_t> bytes;
};

MutablePlaneView allocate(OwnedPlane& plane, int width, int height, const DrawingMemory& memory) {
  const ptrdiff_t stride = (width + 31) / 32 * 32 + 32;
  plane.bytes = memory.pool.makeBytes(static_cast<size_t>(stride) * height);
  const MutablePlaneView view{plane.bytes.get(), stride, width, height};
  plane.view = view.view();
  return view;
}

/// The part of a plane that lies under the bounds, with some samples around it, from an even row and column on.
PlaneView cropToBounds(const PlaneView& source, AxisMap& map, const SampleRect& bounds) {
  const auto range = [](double scale, double offset, int begin, int end, int length, int& first) {
    const double margin = 2 + 2 / scale;
    first = static_cast<int>(std::clamp(std::floor((begin - offset) / scale - margin), 0.0, length - 1.0)) & ~1;
    return static_cast<int>(std::clamp(std::ceil((end - offset) / scale + margin), first + 1.0, double(length))) - first;
  };
  int x = 0, y = 0;
  const int width = range(map.scaleX, map.offsetX, bounds.x0, bounds.x1, source.width, x);
  const int height = range(map.scaleY, map.offsetY, bounds.y0, bounds.y1, source.height, y);
  map.offsetX += x * map.scaleX;
  map.offsetY += y * map.scaleY;
  return {source.row(y) + x, source.stride, width, height};
}

/// A whole number of destination samples, each made of exactly two by two source samples that exist.
bool isExactHalving(const PlaneView& source, const AxisMap& map, const SampleRect& bounds) {
  const double x = 2 * (bounds.x0 - map.offsetX), y = 2 * (bounds.y0 - map.offsetY);
  return map.scaleX == 0.5 && map.scaleY == 0.5 && x == std::round(x) && y == std::round(y) && x >= 0 && y >= 0 &&
         x + 2 * bounds.width() <= source.width && y + 2 * bounds.height() <= source.height;
}

void halveInto(const PlaneView& source, const AxisMap& map, const SampleRect& bounds, const MutablePlaneView& plane) {
  const int x = static_cast<int>(2 * (bounds.x0 - map.offsetX)), y = static_cast<int>(2 * (bounds.y0 - map.offsetY));
  const PlaneView from{source.row(y) + x, source.stride, 2 * bounds.width(), 2 * bounds.height()};
  halvePlane(from, true, true, {plane.row(bounds.y0) + bounds.x0, plane.stride, bounds.width(), bounds.height()});
}

bool drawUpright(PlaneView source, AxisMap map, const SampleRect& bounds, PlaneSink& sink, const DrawingMemory& memory) {
  OwnedPlane halved;
  while (map.scaleX <= 0.5 || map.scaleY <= 0.5) {
    const MutablePlaneView direct = sink.direct();
    if (direct.data && isExactHalving(source, map, bounds)) {
      halveInto(source, map, bounds, direct);
      return true;
    }
    const bool across = map.scaleX <= 0.5, down = map.scaleY <= 0.5;
    source = cropToBounds(source, map, bounds);
    OwnedPlane next;
    const MutablePlaneView target =
        allocate(next, across ? (source.width + 1) / 2 : source.width, down ? (source.height + 1) / 2 : source.height, memory);
    if (!target.data) return false;
    halvePlane(source, across, down, target);
    halved = std::move(next);
    source = halved.view;
    if (across) map.scaleX *= 2;
    if (down) map.scaleY *= 2;
  }
  PlaneScaler scaler(source, memory.plans.plan(source.width, source.height, map, bounds));
  PlaneSink::Row row;
  for (int y = bounds.y0; y < bounds.y1; ++y) {
    sink.open(row, y, bounds.x0, bounds.x1);
    scaler.row(y, row.samples);
    sink.close(row);
  }
  return true;
}

/// Scales the source upright by the affine map's own factors where they reduce, and takes them out of the map.
bool reduceFirst(OwnedPlane& source, CGAffineTransform& map, const DrawingMemory& memory) {
  const double across = std::min(1.0, std::hypot(map.a, map.b)), down = std::min(1.0, std::hypot(map.c, map.d));
  if (std::min(across, down) >= kSmallestAffineScale) return true;
  OwnedPlane reduced;
  const MutablePlaneView target = allocate(reduced, static_cast<int>(std::ceil(source.view.width * across)),
                                           static_cast<int>(std::ceil(source.view.height * down)), memory);
  if (!target.data) return false;
  const SampleRect whole{0, 0, target.width, target.height};
  PlaneSink sink(target, nullptr, whole, 256);
  if (!drawUpright(source.view, {across, down, 0, 0}, whole, sink, memory)) return false;
  source = std::move(reduced);
  map = {map.a / across, map.b / across, map.c / down, map.d / down, map.tx, map.ty};
  return true;
}

/// Samples the rows of a band tile by tile, since neighbouring rows of a tile look at the same source samples.
void sampleBand(const AffineSampler& sampler, std::span<const PlaneSink::Row> rows, const SampleRect& bounds) {
  for (int left = bounds.x0; left < bounds.x1; left += AffineSampler::kTileWidth) {
    for (const PlaneSink::Row& row : rows) {
      const int begin = std::max(left, row.begin), end = std::min(left + AffineSampler::kTileWidth, row.end);
      if (begin < end) sampler.row(row.y, begin, end, row.samples + (begin - row.begin));
    }
  }
}

bool drawAffine(const PlaneView& plane, CGAffineTransform map, const SampleRect& bounds, const LayerCoverage* coverage,
                PlaneSink& sink, const DrawingMemory& memory) {
  OwnedPlane source{plane, nullptr};
  if (!reduceFirst(source, map, memory)) return false;
  const AffineSampler sampler(source.view, map, bounds, memory.pool);
  if (!sampler.isValid()) return false;
  std::vector<PlaneSink::Row> rows(kBandRows);
  for (int top = bounds.y0; top < bounds.y1; top += kBandRows) {
    size_t open = 0;
    for (int y = top; y < std::min(top + kBandRows, bounds.y1); ++y) {
      const SampleSpan span = coverage ? coverage->touched(y, {bounds.x0, bounds.x1}) : SampleSpan{bounds.x0, bounds.x1};
      if (!span.isEmpty()) sink.open(rows[open++], y, span.begin, span.end);
    }
    sampleBand(sampler, std::span(rows).first(open), bounds);
    for (size_t row = 0; row < open; ++row) sink.close(rows[row]);
  }
  return true;
}

}  // namespace

bool drawPlane(const PlaneView& source, const CGAffineTransform& map, const SampleRect& bounds, const LayerCoverage* coverage,
               PlaneSink& sink, const DrawingMemory& memory) {
  if (bounds.isEmpty()) return true;
  if (map.b != 0 || map.c != 0 || map.a <= 0 || map.d <= 0) return drawAffine(source, map, bounds, coverage, sink, memory);
  return drawUpright(source, {map.a, map.d, map.tx, map.ty}, bounds, sink, memory);
}

}  // namespace vidloom
