#include "vidloom/platform/pixels/LayerPainter.h"

#include <algorithm>
#include <cmath>

#include "vidloom/platform/pixels/BlendKernels.h"
#include "vidloom/platform/pixels/PixelConversion.h"
#include "vidloom/platform/pixels/PlaneHalving.h"

namespace vidloom {
namespace {

constexpr int kOpaque = 256;
constexpr int kColorPlanes = 3;
constexpr int kAlphaPlane = 3;

bool isChroma(int plane) { return plane == 1 || plane == 2; }
int planeCount(const Picture& picture) { return picture.hasAlpha() ? kColorPlanes + 1 : kColorPlanes; }

SampleRect wholeOf(const PlaneView& plane) { return {0, 0, plane.width, plane.height}; }

bool isEven(double value) { return value / 2 == std::round(value / 2); }

double areaOf(const CGAffineTransform& map) { return std::abs(map.a * map.d - map.b * map.c); }

CGAffineTransform movedBy(CGAffineTransform map, double x, double y) {
  map.tx += x;
  map.ty += y;
  return map;
}

/// The bounds of luma samples, widened to whole chroma samples.
SampleRect evenBounds(const SampleRect& luma) { return {luma.x0 & ~1, luma.y0 & ~1, (luma.x1 + 1) & ~1, (luma.y1 + 1) & ~1}; }

void premultiply(const PlaneView& source, const PlaneView& alpha, const MutablePlaneView& destination) {
  for (int y = 0; y < source.height; ++y) premultiplyRow(destination.row(y), source.row(y), alpha.row(y), source.width);
}

}  // namespace

bool sameCodes(const PictureColor& one, const PictureColor& other) {
  return one.matrix == other.matrix && one.fullRange == other.fullRange;
}

bool LayerPainter::paint(const PictureRef& picture, const LayerPlacement& placement) {
  Drawing drawing{picture,
                  placement.map,
                  placement.orientation,
                  placement.opacity,
                  placement.isClipped,
                  {placement.coverage(false), placement.coverage(true)},
                  {}};
  drawing.coverage[1].setHalfSamples(output_.width % 2 ? output_.width / 2 : -1, output_.height % 2 ? output_.height / 2 : -1);
  drawing.bounds = std::array{drawing.coverage[0].bounds(wholeOf(planeOf(output_, 0).view())),
                              drawing.coverage[1].bounds(wholeOf(planeOf(output_, 1).view()))};
  if (drawing.bounds[0].isEmpty()) return true;
  const bool painted = picture->hasAlpha() ? paintWithAlpha(std::move(drawing), placement.isStraight)
                                           : paintOpaque(std::move(drawing), placement.isStraight);
  beneath_.reset();
  return painted;
}

// Colours are converted and sides turned where there are fewer samples: before the picture is enlarged, after it is reduced.
bool LayerPainter::paintOpaque(Drawing drawing, bool straight) {
  const bool recolors = !sameCodes(drawing.picture->color, output_.color);
  const bool turns = straight && !drawing.orientation.isUpright();
  const SampleRect& bounds = drawing.bounds[0];
  const double sourcePixels = double(drawing.picture->width) * drawing.picture->height;
  const bool reduces = areaOf(drawing.map) < 1 && double(bounds.width()) * bounds.height() < sourcePixels;
  if (turns && !recolors && turnIntoOutput(drawing)) return true;
  if (reduces && (recolors || turns)) {
    if (!straight) drawing.orientation = {};
    return settle(drawing, recolors) && drawPlanes(drawing);
  }
  if (recolors && !recolor(drawing)) return false;
  if (turns && !turn(drawing)) return false;
  return drawPlanes(drawing);
}

bool LayerPainter::paintWithAlpha(Drawing drawing, bool straight) {
  if (!sameCodes(drawing.picture->color, output_.color) && !recolor(drawing)) return false;
  if (straight && !drawing.orientation.isUpright() && !turn(drawing)) return false;
  const CGAffineTransform& map = drawing.map;
  const bool stays = map.a == 1 && map.d == 1 && map.b == 0 && map.c == 0 && isEven(map.tx) && isEven(map.ty);
  return stays && !drawing.isClipped && drawing.picture->width % 2 == 0 && drawing.picture->height % 2 == 0
             ? drawStraight(drawing)
             : drawPremultiplied(drawing);
}

/// A turn that moves samples one by one goes straight to the output, if nothing has to be blended; else false.
bool LayerPainter::turnIntoOutput(const Drawing& drawing) {
  const CGAffineTransform& map = drawing.map;
  const bool wholeSteps = std::abs(map.a + map.c) == 1 && std::abs(map.b + map.d) == 1;
  const Picture& picture = *drawing.picture;
  const bool aligned = isEven(map.tx) && isEven(map.ty) && picture.width % 2 == 0 && picture.height % 2 == 0;
  const bool inside = drawing.bounds[0].width() == (drawing.orientation.transpose ? picture.height : picture.width) &&
                      drawing.bounds[0].height() == (drawing.orientation.transpose ? picture.width : picture.height);
  if (!wholeSteps || !aligned || !inside || drawing.opacity != kOpaque) return false;
  for (int plane = 0; plane < kColorPlanes; ++plane) {
    const SampleRect& bounds = drawing.bounds[isChroma(plane)];
    const MutablePlaneView target = planeOf(output_, plane);
    orientPlane(planeOf(picture, plane), drawing.orientation,
                {target.row(bounds.y0) + bounds.x0, target.stride, bounds.width(), bounds.height()});
  }
  return true;
}

/// Replaces the picture by one that only needs moving by whole samples: scaled, turned and in the output's colours.
bool LayerPainter::settle(Drawing& drawing, bool recolors) {
  const SampleRect bounds = evenBounds(drawing.bounds[0]);
  const Orientation orientation = drawing.orientation;
  const CGAffineTransform toBounds = movedBy(drawing.map, -bounds.x0, -bounds.y0);
  const int width = orientation.transpose ? bounds.height() : bounds.width();
  const int height = orientation.transpose ? bounds.width() : bounds.height();
  const CGAffineTransform back = CGAffineTransformInvert(orientationMap(orientation, width, height));
  drawing.picture = render(*drawing.picture, CGAffineTransformConcat(toBounds, back), width, height);
  if (!drawing.picture) return false;
  drawing.map = CGAffineTransformIdentity;
  if (recolors && !recolor(drawing)) return false;
  if (!orientation.isUpright()) {
    drawing.map = orientationMap(orientation, width, height);
    if (!turn(drawing)) return false;
  }
  drawing.map = CGAffineTransformMake(1, 0, 0, 1, bounds.x0, bounds.y0);
  return true;
}

/// Replaces the picture by itself, turned upright; sides that are walked backwards must be even.
bool LayerPainter::turn(Drawing& drawing) {
  const Picture& picture = *drawing.picture;
  const Orientation& orientation = drawing.orientation;
  const auto turned = memory_.pool.make(orientation.transpose ? picture.height : picture.width,
                                        orientation.transpose ? picture.width : picture.height, picture.color, picture.hasAlpha());
  if (!turned) return false;
  for (int plane = 0; plane < planeCount(picture); ++plane)
    orientPlane(planeOf(picture, plane), orientation, planeOf(*turned, plane));
  const CGAffineTransform back = CGAffineTransformInvert(orientationMap(orientation, picture.width, picture.height));
  drawing.map = CGAffineTransformConcat(back, drawing.map);
  drawing.picture = turned;
  drawing.orientation = {};
  return true;
}

bool LayerPainter::recolor(Drawing& drawing) {
  const auto recolored =
      memory_.pool.make(drawing.picture->width, drawing.picture->height, output_.color, drawing.picture->hasAlpha());
  if (!recolored) return false;
  convertColor(*drawing.picture, *recolored);
  drawing.picture = recolored;
  return true;
}

bool LayerPainter::drawPlanes(const Drawing& drawing) {
  for (int plane = 0; plane < kColorPlanes; ++plane) {
    const bool chroma = isChroma(plane);
    PlaneSink sink = sinkFor(drawing, plane);
    if (!drawPlane(planeOf(*drawing.picture, plane), chroma ? chromaMap(drawing.map) : drawing.map, drawing.bounds[chroma],
                   &drawing.coverage[chroma], sink, memory_)) {
      return false;
    }
  }
  return true;
}

PlaneSink LayerPainter::sinkFor(const Drawing& drawing, int plane) {
  const bool chroma = isChroma(plane);
  PlaneSink sink(planeOf(output_, plane), &drawing.coverage[chroma], drawing.bounds[chroma], drawing.opacity);
  sink.setBeneath(beneath(plane));
  return sink;
}

/// A picture with alpha that is only moved by whole samples.
bool LayerPainter::drawStraight(const Drawing& drawing) {
  const Picture& picture = *drawing.picture;
  const auto mask = memory_.pool.make(picture.width, picture.height, picture.color, false);
  if (!mask) return false;
  const MutablePlaneView chromaAlpha = planeOf(*mask, 1);
  halvePlane(planeOf(picture, kAlphaPlane), true, true, chromaAlpha);
  for (int plane = 0; plane < kColorPlanes; ++plane) {
    const SampleRect& bounds = drawing.bounds[isChroma(plane)];
    const CGAffineTransform map = isChroma(plane) ? chromaMap(drawing.map) : drawing.map;
    const PlaneView source = planeOf(picture, plane), under = beneath(plane);
    const PlaneView alpha = isChroma(plane) ? chromaAlpha.view() : planeOf(picture, kAlphaPlane);
    const int dx = bounds.x0 - static_cast<int>(map.tx), dy = -static_cast<int>(map.ty);
    for (int y = bounds.y0; y < bounds.y1; ++y) {
      blendRowStraight(planeOf(output_, plane).row(y) + bounds.x0, under.row(y) + bounds.x0, source.row(y + dy) + dx,
                       alpha.row(y + dy) + dx, bounds.width(), drawing.opacity);
    }
  }
  return true;
}

// Colours are multiplied by alpha before they are resampled, so that those of transparent samples do not leak into their
// neighbours.
bool LayerPainter::drawPremultiplied(const Drawing& drawing) {
  const Picture& picture = *drawing.picture;
  const auto weighted = memory_.pool.make(picture.width, picture.height, picture.color, false);
  const auto mask = memory_.pool.make(picture.width, picture.height, picture.color, false);
  if (!weighted || !mask) return false;
  const MutablePlaneView chromaAlpha = planeOf(*mask, 1);
  halvePlane(planeOf(picture, kAlphaPlane), true, true, chromaAlpha);
  const PlaneView alphas[] = {planeOf(picture, kAlphaPlane), chromaAlpha.view()};
  for (int plane = 0; plane < kColorPlanes; ++plane) {
    premultiply(planeOf(picture, plane), alphas[isChroma(plane)], planeOf(*weighted, plane));
  }
  const SampleRect even = evenBounds(drawing.bounds[0]);
  const auto drawnMask = memory_.pool.make(even.width(), even.height(), picture.color, false);
  if (!drawnMask) return false;
  for (const bool chroma : {false, true}) {
    const CGAffineTransform map = chroma ? chromaMap(drawing.map) : drawing.map;
    const int x = chroma ? even.x0 / 2 : even.x0, y = chroma ? even.y0 / 2 : even.y0;
    const MutablePlaneView maskPlane = planeOf(*drawnMask, chroma);
    PlaneSink maskSink(maskPlane, nullptr, wholeOf(maskPlane.view()), kOpaque);
    if (!drawPlane(alphas[chroma], movedBy(map, -x, -y), wholeOf(maskPlane.view()), nullptr, maskSink, memory_)) return false;
    for (int plane = chroma ? 1 : 0; plane <= (chroma ? 2 : 0); ++plane) {
      PlaneSink sink = sinkFor(drawing, plane);
      sink.setAlpha(maskPlane.view(), x, y);
      if (!drawPlane(planeOf(*weighted, plane).view(), map, drawing.bounds[chroma], &drawing.coverage[chroma], sink, memory_)) {
        return false;
      }
    }
  }
  return true;
}

/// The picture through a map, without regard to where it ends.
std::shared_ptr<MutablePicture> LayerPainter::render(const Picture& picture, const CGAffineTransform& map, int width, int height) {
  const auto rendered = memory_.pool.make(width, height, picture.color, false);
  if (!rendered) return nullptr;
  for (int plane = 0; plane < kColorPlanes; ++plane) {
    const MutablePlaneView target = planeOf(*rendered, plane);
    PlaneSink sink(target, nullptr, wholeOf(target.view()), kOpaque);
    const CGAffineTransform planeMap = isChroma(plane) ? chromaMap(map) : map;
    if (!drawPlane(planeOf(picture, plane), planeMap, wholeOf(target.view()), nullptr, sink, memory_)) return nullptr;
  }
  return rendered;
}

}  // namespace vidloom
