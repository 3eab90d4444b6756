#include "vidloom/platform/pixels/LayerRaster.h"

#include "vidloom/platform/pixels/AlphaRaster.h"
#include "vidloom/platform/pixels/LayerPainter.h"
#include "vidloom/platform/pixels/LayerPlacement.h"
#include "vidloom/platform/pixels/PixelConversion.h"

namespace vidloom {
namespace {

constexpr int kOpaque = 256;

bool isEven(double value) { return value / 2 == static_cast<int>(value / 2); }

/// The bounds of luma samples, widened to whole chroma samples.
SampleRect evenBounds(const SampleRect& luma) { return {luma.x0 & ~1, luma.y0 & ~1, (luma.x1 + 1) & ~1, (luma.y1 + 1) & ~1}; }

/// An opaque layer that covers the bounds entirely, by the same kernels as layers that move.
PictureRef painted(const PictureRef& picture, LayerPlacement placement, const SampleRect& bounds, const PictureColor& color,
                   const DrawingMemory& memory) {
  const auto output = memory.pool.make(bounds.width(), bounds.height(), color, false);
  if (!output) return nullptr;
  placement.map.tx -= bounds.x0;
  placement.map.ty -= bounds.y0;
  return LayerPainter(*output, memory).paint(picture, placement) ? output : nullptr;
}

PictureRef inColor(const PictureRef& picture, const PictureColor& color, PicturePool& pool) {
  if (sameCodes(picture->color, color)) return picture;
  const auto recolored = pool.make(picture->width, picture->height, color, picture->hasAlpha());
  if (recolored) convertColor(*picture, *recolored);
  return recolored;
}

}  // namespace

std::optional<PictureLayer> rasterLayer(const PictureLayer& layer, int width, int height, const PictureColor& color,
                                        const DrawingMemory& memory) {
  const LayerPlacement placement = LayerPlacement::of(layer);
  if (placement.opacity == 0) return PictureLayer{};
  const SampleRect visible = placement.coverage(false).bounds({0, 0, width, height});
  if (visible.isEmpty()) return PictureLayer{};
  const bool isWhole = placement.opacity == kOpaque && !placement.isClipped;
  const bool stays = placement.isTranslation() && isEven(placement.map.tx) && isEven(placement.map.ty);
  if (isWhole && stays && sameCodes(layer.picture->color, color)) return layer;
  const SampleRect bounds = evenBounds(visible);
  const bool isSolid = placement.opacity == kOpaque && !layer.picture->hasAlpha() && placement.coverage(false).fills(bounds);
  PictureRef picture;
  if (isSolid) {
    picture = painted(layer.picture, placement, bounds, color, memory);
  } else if (const PictureRef source = inColor(layer.picture, color, memory.pool)) {
    picture = rasterAlpha(*source, placement, bounds, memory.pool);
  }
  if (!picture) return std::nullopt;
  const CGSize size = CGSizeMake(bounds.width(), bounds.height());
  return PictureLayer{picture, size, CGAffineTransformMake(1, 0, 0, 1, bounds.x0, bounds.y0)};
}

}  // namespace vidloom
