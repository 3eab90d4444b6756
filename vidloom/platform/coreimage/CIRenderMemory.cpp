#include "vidloom/platform/coregraphics/CGImageAlpha.h"
#include "vidloom/platform/coreimage/CIRenderer.h"
#include "vidloom/platform/corevideo/CVPixelBuffer.h"
#include "vidloom/platform/pixels/PicturePool.h"

namespace vidloom {

namespace {

constexpr size_t kKeptSources = 4;

/// Premultiplied planes of that size whose bottom left is at the origin.
std::optional<CICanvas> makePlanes(size_t width, size_t height, const DrawingMemory& memory) {
  return CICanvas::make({0, -static_cast<int>(height), static_cast<int>(width), 0}, memory);
}

std::optional<CIRaster> planesOf(const Picture& picture, const DrawingMemory& memory) {
  const auto canvas = makePlanes(static_cast<size_t>(picture.width), static_cast<size_t>(picture.height), memory);
  const ptrdiff_t stride = ptrdiff_t{4} * picture.width;
  const auto bytes = memory.pool.makeBytes(static_cast<size_t>(stride) * static_cast<size_t>(picture.height));
  if (!canvas || !bytes) return std::nullopt;
  const AlphaMode alpha = picture.hasAlpha() ? AlphaMode::premultiplied : AlphaMode::ignored;
  writeBGRA(picture, alpha, bytes.get(), stride);
  splitBGRA(bytes.get(), stride, alpha, canvas->planes());
  return canvas->raster();
}

std::optional<CIRaster> planesOf(const CGImageRef& image, const DrawingMemory& memory) {
  const auto canvas = makePlanes(CGImageGetWidth(image), CGImageGetHeight(image), memory);
  if (!canvas) return std::nullopt;
  splitBGRA(CGImageGetBytes(image), static_cast<ptrdiff_t>(CGImageGetBytesPerRow(image)), alphaModeOf(CGImageGetAlphaInfo(image)),
            canvas->planes());
  return canvas->raster();
}

std::optional<CIRaster> planesOf(const CVPixelBufferRef& buffer, const DrawingMemory& memory) {
  if (CVPixelBufferIsPlanar(buffer)) {
    const PictureRef picture = CVPixelBufferCopyPicture(buffer);
    return picture ? planesOf(*picture, memory) : std::nullopt;
  }
  const auto canvas = makePlanes(CVPixelBufferGetWidth(buffer), CVPixelBufferGetHeight(buffer), memory);
  if (!canvas || CVPixelBufferLockBaseAddress(buffer, kCVPixelBufferLock_ReadOnly) != kCVReturnSuccess) return std::nullopt;
  splitBGRA(static_cast<const uint8_t*>(CVPixelBufferGetBaseAddress(buffer)),
            static_cast<ptrdiff_t>(CVPixelBufferGetBytesPerRow(buffer)), AlphaMode::premultiplied, canvas->planes());
  CVPixelBufferUnlockBaseAddress(buffer, kCVPixelBufferLock_ReadOnly);
  return canvas->raster();
}

}  // namespace

std::optional<CIRaster> CIRenderMemory::source(const std::shared_ptr<const CIRecipe>& recipe, const CISource& source) {
  if (source.picture) return planesOf(*source.picture, drawing());
  if (source.pixelBuffer) return planesOf(source.pixelBuffer, drawing());
  if (auto known = recall(recipe)) return known;
  auto raster = planesOf(source.image, drawing());
  if (!raster) return std::nullopt;
  std::list<Kept> dropped;
  const std::lock_guard lock(mutex_);
  kept_.push_front({recipe, *raster});
  if (kept_.size() > kKeptSources) dropped.splice(dropped.end(), kept_, std::prev(kept_.end()));
  return raster;
}

std::optional<CIRaster> CIRenderMemory::recall(const std::shared_ptr<const CIRecipe>& recipe) {
  std::list<Kept> dropped;
  const std::lock_guard lock(mutex_);
  for (auto kept = kept_.begin(); kept != kept_.end();) {
    const auto here = kept++;
    const auto known = here->recipe.lock();
    if (!known) dropped.splice(dropped.end(), kept_, here);
    if (known != recipe) continue;
    kept_.splice(kept_.begin(), kept_, here);
    return here->raster;
  }
  return std::nullopt;
}

}  // namespace vidloom
