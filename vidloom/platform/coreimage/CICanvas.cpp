#include "vidloom/platform/coreimage/CICanvas.h"

#include <algorithm>
#include <cstring>
#include <vector>

#include "vidloom/platform/coreimage/CIGrid.h"
#include "vidloom/platform/pixels/BlendKernels.h"
#include "vidloom/platform/pixels/LayerPlacement.h"

namespace vidloom {

namespace {

constexpr int kColorPlanes = 3, kAlphaPlane = 3, kOpaque = 256;
constexpr int kLongestSide = 32768;

CGAffineTransform shift(double x, double y) { return {1, 0, 0, 1, x, y}; }

SampleRect wholeOf(const PlaneView& plane) { return {0, 0, plane.width, plane.height}; }

bool isEverySampleOpaque(const PlaneView& alpha) {
  for (int y = 0; y < alpha.height; ++y) {
    const uint8_t* row = alpha.row(y);
    uint8_t all = 255;
    for (int x = 0; x < alpha.width; ++x) all &= row[x];
    if (all != 255) return false;
  }
  return true;
}

/// Where pixels of that size go.
LayerPlacement placementOf(const SampleRect& samples, const CGAffineTransform& map) {
  const auto size = std::make_shared<Picture>();
  size->width = samples.width();
  size->height = samples.height();
  return LayerPlacement::of({size, CGSizeMake(size->width, size->height), map, 1});
}

/// The raster turned upright, and the map that then remains.
bool turn(CIRaster& raster, const Orientation& orientation, CGAffineTransform& map, const DrawingMemory& memory) {
  const int width = raster.rect.width(), height = raster.rect.height();
  const SampleRect turnedRect = orientation.transpose ? SampleRect{0, 0, height, width} : SampleRect{0, 0, width, height};
  const auto turned = CICanvas::make(turnedRect, memory);
  if (!turned) return false;
  for (size_t i = 0; i < raster.planes.size(); ++i) orientPlane(raster.planes[i], orientation, turned->planes()[i]);
  map = CGAffineTransformConcat(CGAffineTransformInvert(orientationMap(orientation, width, height)), map);
  const bool isOpaque = raster.isOpaque;
  raster = turned->raster();
  raster.isOpaque = isOpaque;
  return true;
}

}  // namespace

CIRaster CIRaster::part(const SampleRect& samples) const {
  CIRaster result{samples, planes, owner, isOpaque};
  for (PlaneView& plane : result.planes) {
    plane = {plane.row(samples.y0 - rect.y0) + (samples.x0 - rect.x0), plane.stride, samples.width(), samples.height()};
  }
  return result;
}

std::optional<CICanvas> CICanvas::make(const SampleRect& rect, const DrawingMemory& memory) {
  if (rect.isEmpty() || rect.width() > kLongestSide || rect.height() > kLongestSide) return std::nullopt;
  CICanvas canvas;
  canvas.rect_ = rect;
  const ptrdiff_t stride = (rect.width() + 63) / 64 * 64 + 64;
  const size_t planeBytes = static_cast<size_t>(stride) * static_cast<size_t>(rect.height());
  canvas.bytes_ = memory.pool.makeBytes(kBgraPlaneCount * planeBytes);
  if (!canvas.bytes_) return std::nullopt;
  std::memset(canvas.bytes_.get(), 0, kBgraPlaneCount * planeBytes);
  for (size_t i = 0; i < kBgraPlaneCount; ++i) {
    canvas.planes_[i] = {canvas.bytes_.get() + i * planeBytes, stride, rect.width(), rect.height()};
  }
  return canvas;
}

CIRaster CICanvas::raster() const {
  CIRaster raster{rect_, {}, bytes_, isEverySampleOpaque(planes_[kAlphaPlane].view())};
  for (size_t i = 0; i < kBgraPlaneCount; ++i) raster.planes[i] = planes_[i].view();
  return raster;
}

bool CICanvas::paint(CIRaster raster, CGRect visible, const CGAffineTransform& map, const SampleRect& clip,
                     const DrawingMemory& memory) {
  const SampleRect part = intersection(raster.rect, samplesTouched(visible));
  if (part.isEmpty()) return true;
  visible = CGRectIntersection(visible, rectOf(part));
  const auto toCanvas = CGAffineTransformConcat(map, shift(-rect_.x0, -rect_.y0));
  const LayerPlacement placement = placementOf(part, CGAffineTransformConcat(shift(part.x0, part.y0), toCanvas));
  if (placement.opacity == 0) return true;
  CGAffineTransform pixelMap = placement.map;
  const CGAffineTransform visibleMap =
      CGAffineTransformConcat(shift(visible.origin.x - part.x0, visible.origin.y - part.y0), pixelMap);
  const LayerCoverage coverage(visible.size, visibleMap);
  const SampleRect bounds = coverage.bounds(moved(intersection(clip, rect_), -rect_.x0, -rect_.y0));
  if (bounds.isEmpty()) return true;
  raster = raster.part(part);
  if (!placement.orientation.isUpright() && !turn(raster, placement.orientation, pixelMap, memory)) return false;
  return draw(raster, pixelMap, bounds, coverage, memory);
}

bool CICanvas::draw(const CIRaster& raster, const CGAffineTransform& map, const SampleRect& bounds, const LayerCoverage& coverage,
                    const DrawingMemory& memory) {
  std::optional<CICanvas> mask;
  if (!raster.isOpaque) {
    mask = make({0, 0, bounds.width(), bounds.height()}, memory);
    if (!mask) return false;
    const MutablePlaneView plane = mask->planes()[kAlphaPlane];
    PlaneSink sink(plane, nullptr, wholeOf(plane.view()), kOpaque);
    const auto toMask = CGAffineTransformConcat(map, shift(-bounds.x0, -bounds.y0));
    if (!drawPlane(raster.planes[kAlphaPlane], toMask, wholeOf(plane.view()), nullptr, sink, memory)) return false;
  }
  const PlaneView maskPlane = mask ? mask->planes()[kAlphaPlane].view() : PlaneView{};
  for (int i = 0; i < kColorPlanes; ++i) {
    PlaneSink sink(planes_[i], &coverage, bounds, kOpaque);
    if (mask) sink.setAlpha(maskPlane, bounds.x0, bounds.y0);
    if (!drawPlane(raster.planes[i], map, bounds, &coverage, sink, memory)) return false;
  }
  drawAlpha(maskPlane, bounds, coverage);
  return true;
}

void CICanvas::drawAlpha(const PlaneView& mask, const SampleRect& bounds, const LayerCoverage& coverage) {
  PlaneSink sink(planes_[kAlphaPlane], &coverage, bounds, kOpaque);
  if (mask.data) sink.setAlpha(mask, bounds.x0, bounds.y0);
  PlaneSink::Row row;
  for (int y = bounds.y0; y < bounds.y1; ++y) {
    const SampleSpan span = coverage.touched(y, {bounds.x0, bounds.x1});
    if (span.isEmpty()) continue;
    sink.open(row, y, span.begin, span.end);
    const size_t count = static_cast<size_t>(span.end - span.begin);
    if (mask.data) {
      std::memcpy(row.samples, mask.row(y - bounds.y0) + (span.begin - bounds.x0), count);
    } else {
      std::memset(row.samples, 255, count);
    }
    sink.close(row);
  }
}

void CICanvas::fill(const std::array<uint8_t, 4>& premultipliedBGRA, const SampleRect& clip) {
  const SampleRect samples = moved(intersection(clip, rect_), -rect_.x0, -rect_.y0);
  const int width = samples.width();
  if (samples.isEmpty() || premultipliedBGRA[kAlphaPlane] == 0) return;
  const std::vector<uint8_t> alpha(static_cast<size_t>(width), premultipliedBGRA[kAlphaPlane]);
  for (size_t i = 0; i < kBgraPlaneCount; ++i) {
    const std::vector<uint8_t> color(static_cast<size_t>(width), premultipliedBGRA[i]);
    for (int y = samples.y0; y < samples.y1; ++y) {
      uint8_t* row = planes_[i].row(y) + samples.x0;
      blendRowPremultiplied(row, row, color.data(), alpha.data(), width, kOpaque);
    }
  }
}

void CICanvas::extend(const CIRaster& raster) {
  for (size_t i = 0; i < kBgraPlaneCount; ++i) {
    const PlaneView& source = raster.planes[i];
    for (int y = 0; y < rect_.height(); ++y) {
      const uint8_t* from = source.row(std::clamp(y + rect_.y0 - raster.rect.y0, 0, source.height - 1));
      uint8_t* to = planes_[i].row(y);
      const int begin = std::clamp(raster.rect.x0 - rect_.x0, 0, rect_.width());
      const int end = std::clamp(raster.rect.x1 - rect_.x0, begin, rect_.width());
      std::memset(to, from[0], static_cast<size_t>(begin));
      if (begin < end) std::memcpy(to + begin, from + (begin + rect_.x0 - raster.rect.x0), static_cast<size_t>(end - begin));
      std::memset(to + end, from[source.width - 1], static_cast<size_t>(rect_.width() - end));
    }
  }
}

}  // namespace vidloom
