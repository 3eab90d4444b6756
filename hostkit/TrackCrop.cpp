#include "hostkit/TrackCrop.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace vidloom {
namespace {

bool hasArea(const CGSize& size) { return size.width > 0 && size.height > 0; }

CGAffineTransform translation(double x, double y) { return {1, 0, 0, 1, x, y}; }

CGRect boundsUnder(const CGRect& rect, const CGAffineTransform& map) {
  const double left = CGRectGetMinX(rect), right = CGRectGetMaxX(rect), top = CGRectGetMinY(rect), bottom = CGRectGetMaxY(rect);
  const CGPoint first = CGPointApplyAffineTransform({left, top}, map);
  double low[] = {first.x, first.y}, high[] = {first.x, first.y};
  for (const CGPoint corner : {CGPoint{right, top}, CGPoint{left, bottom}, CGPoint{right, bottom}}) {
    const CGPoint point = CGPointApplyAffineTransform(corner, map);
    low[0] = std::min(low[0], point.x);
    low[1] = std::min(low[1], point.y);
    high[0] = std::max(high[0], point.x);
    high[1] = std::max(high[1], point.y);
  }
  return CGRectMake(low[0], low[1], high[0] - low[0], high[1] - low[1]);
}

/// The map that puts a stored picture upright with its top left at the origin.
CGAffineTransform uprightMap(const CGSize& stored, const CGAffineTransform& preferred) {
  if (preferred.a * preferred.d - preferred.b * preferred.c == 0) return CGAffineTransformIdentity;
  const CGRect bounds = boundsUnder(CGRectMake(0, 0, stored.width, stored.height), preferred);
  return CGAffineTransformConcat(preferred, translation(-bounds.origin.x, -bounds.origin.y));
}

CGAffineTransform turnAboutMiddle(double degrees, const CGSize& size) {
  const double quarters = degrees / 90;
  const double angle = degrees * std::numbers::pi / 180;
  // Quarter turns are exact, so that their edges stay on the pixels.
  const bool isExact = quarters == std::round(quarters);
  const double sine = isExact ? std::round(std::sin(angle)) : std::sin(angle);
  const double cosine = isExact ? std::round(std::cos(angle)) : std::cos(angle);
  const CGAffineTransform turn{cosine, sine, -sine, cosine, 0, 0};
  const CGAffineTransform toMiddle = CGAffineTransformConcat(translation(-size.width / 2, -size.height / 2), turn);
  return CGAffineTransformConcat(toMiddle, translation(size.width / 2, size.height / 2));
}

}  // namespace

std::optional<CGRect> croppedRect(const LUMCropData& crop, const CGSize& upright) {
  const CGRect& percent = crop.percent();
  if (hasArea(percent.size)) {
    return CGRectMake(percent.origin.x * upright.width, percent.origin.y * upright.height, percent.size.width * upright.width,
                      percent.size.height * upright.height);
  }
  const CGRect& absolute = crop.absolute();
  if (!hasArea(absolute.size)) return std::nullopt;
  const CGSize box = hasArea(crop.box()) ? crop.box() : upright;
  const double across = upright.width / box.width, down = upright.height / box.height;
  return CGRectMake(absolute.origin.x * across, absolute.origin.y * down, absolute.size.width * across,
                    absolute.size.height * down);
}

CGSize uprightSize(const CGSize& stored, const CGAffineTransform& preferred) {
  return boundsUnder(CGRectMake(0, 0, stored.width, stored.height), uprightMap(stored, preferred)).size;
}

PicturePart partOfPicture(const LUMCropData* crop, const CGSize& stored, const CGAffineTransform& preferred,
                          const CGAffineTransform& transform) {
  if (crop == nullptr || !hasArea(stored)) return {std::nullopt, transform};
  const CGAffineTransform upright = uprightMap(stored, preferred);
  const CGSize whole = uprightSize(stored, preferred);
  const std::optional<CGRect> cropped = croppedRect(*crop, whole);
  const CGRect rect = cropped.value_or(CGRectMake(0, 0, whole.width, whole.height));
  const CGAffineTransform back = CGAffineTransformInvert(upright);
  CGAffineTransform map = CGAffineTransformConcat(upright, translation(-rect.origin.x, -rect.origin.y));
  map = CGAffineTransformConcat(map, turnAboutMiddle(static_cast<double>(crop->angle()), rect.size));
  if (crop->transform() != CGAffineTransform{}) map = CGAffineTransformConcat(map, crop->transform());
  map = CGAffineTransformConcat(CGAffineTransformConcat(map, back), transform);
  if (!cropped) return {std::nullopt, map};
  const CGRect part = boundsUnder(rect, back);
  return {part, CGAffineTransformConcat(translation(part.origin.x, part.origin.y), map)};
}

}  // namespace vidloom
