#include "vidloom/platform/pixels/LayerPlacement.h"

#include <cmath>

namespace vidloom {
namespace {

// What an edge may be off, in output samples, without anybody seeing it.
constexpr double kSnapDistance = 1.0 / 64;
constexpr double kSmallestSide = 1.0 / 256;
constexpr double kLargestPosition = 1e7;

bool isUsable(const CGAffineTransform& map, double width, double height) {
  for (const double value : {map.a * width, map.b * width, map.c * height, map.d * height, map.tx, map.ty}) {
    if (!(std::abs(value) < kLargestPosition)) return false;
  }
  const double across = std::hypot(map.a, map.b) * width;
  const double down = std::hypot(map.c, map.d) * height;
  const double area = std::abs(map.a * map.d - map.b * map.c) * width * height;
  return across > kSmallestSide && down > kSmallestSide && area > kSmallestSide * std::max(across, down);
}

double snapped(double edge) { return std::abs(edge - std::round(edge)) < kSnapDistance ? std::round(edge) : edge; }

/// Puts both ends of an axis on the grid where they nearly are.
void snapAxis(double& scale, double& offset, double length) {
  const double begin = snapped(offset);
  const double end = snapped(offset + scale * length);
  if (begin == end) return;
  offset = begin;
  scale = (end - begin) / length;
}

}  // namespace

LayerPlacement LayerPlacement::of(const PictureLayer& layer) {
  LayerPlacement placement;
  if (!layer.picture || !(layer.opacity > 0)) return placement;
  const double width = layer.picture->width, height = layer.picture->height;
  const CGAffineTransform toDisplay{layer.displaySize.width / width, 0, 0, layer.displaySize.height / height, 0, 0};
  CGAffineTransform& map = placement.map;
  map = CGAffineTransformConcat(toDisplay, layer.transform);
  if (!isUsable(map, width, height)) return placement;
  placement.shown = CGRectMake(0, 0, width, height);
  if (layer.clip) {
    placement.isClipped = true;
    const CGRect& clip = *layer.clip;
    placement.shown = CGRectMake(clip.origin.x / toDisplay.a, clip.origin.y / toDisplay.d, clip.size.width / toDisplay.a,
                                 clip.size.height / toDisplay.d);
  }
  placement.opacity = static_cast<int>(std::lround(256 * std::min(layer.opacity, 1.0)));
  if (std::abs(map.b) * width < kSnapDistance && std::abs(map.c) * height < kSnapDistance) {
    map.b = map.c = 0;
    snapAxis(map.a, map.tx, width);
    snapAxis(map.d, map.ty, height);
    placement.orientation = {false, map.a < 0, map.d < 0};
  } else if (std::abs(map.a) * width < kSnapDistance && std::abs(map.d) * height < kSnapDistance) {
    map.a = map.d = 0;
    snapAxis(map.c, map.tx, height);
    snapAxis(map.b, map.ty, width);
    placement.orientation = {true, map.c < 0, map.b < 0};
  } else {
    return placement;
  }
  // Walked backwards, a chroma plane of an odd length would be half a sample off.
  const bool backwardsAcross = placement.orientation.transpose ? placement.orientation.flipY : placement.orientation.flipX;
  const bool backwardsDown = placement.orientation.transpose ? placement.orientation.flipX : placement.orientation.flipY;
  placement.isStraight = !(backwardsAcross && layer.picture->width % 2) && !(backwardsDown && layer.picture->height % 2);
  return placement;
}

LayerCoverage LayerPlacement::coverage(bool chroma) const {
  const CGSize& size = shown.size;
  const CGAffineTransform moved = CGAffineTransformConcat(CGAffineTransformMake(1, 0, 0, 1, shown.origin.x, shown.origin.y), map);
  return chroma ? LayerCoverage(CGSizeMake(size.width / 2, size.height / 2), chromaMap(moved)) : LayerCoverage(size, moved);
}

bool LayerPlacement::isTranslation() const {
  return isStraight && orientation.isUpright() && map.a == 1 && map.d == 1 && map.tx == std::round(map.tx) &&
         map.ty == std::round(map.ty);
}

CGAffineTransform chromaMap(const CGAffineTransform& map) { return {map.a, map.b, map.c, map.d, map.tx / 2, map.ty / 2}; }

CGAffineTransform orientationMap(const Orientation& orientation, double width, double height) {
  const double across = orientation.transpose ? height : width;
  const double down = orientation.transpose ? width : height;
  const CGAffineTransform turn = orientation.transpose ? CGAffineTransformMake(0, 1, 1, 0, 0, 0) : CGAffineTransformIdentity;
  const CGAffineTransform flip{
      orientation.flipX ? -1.0 : 1.0, 0, 0, orientation.flipY ? -1.0 : 1.0, orientation.flipX ? across : 0.0,
      orientation.flipY ? down : 0.0};
  return CGAffineTransformConcat(turn, flip);
}

}  // namespace vidloom
