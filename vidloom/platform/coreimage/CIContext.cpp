#include "vidloom/platform/coreimage/CIContext.h"

#include "vidloom/platform/avfoundation/AVError.h"
#include "vidloom/platform/coreimage/CIGrid.h"
#include "vidloom/platform/coreimage/CILayers.h"
#include "vidloom/platform/coreimage/CIRenderer.h"
#include "vidloom/platform/corevideo/CVPixelColor.h"
#include "vidloom/platform/corevideo/CVPixelMemory.h"
#include "vidloom/platform/pixels/PicturePool.h"

namespace vidloom {

namespace {

bool fail(std::optional<NSError>* error, const std::string& problem) {
  if (error) *error = AVMakeError(AVErrorExportFailed, "The image cannot be rendered: " + problem);
  return false;
}

/// The samples of the grid at a rectangle; nothing, with an error, where that is no rectangle that can be rendered.
std::optional<SampleRect> samplesOf(const CIImageRef& image, const CGRect& rect, std::optional<NSError>* error) {
  constexpr double kLongestSide = 32768;
  std::string problem;
  if (!image) {
    problem = "there is none";
  } else if (CGRectIsEmpty(rect)) {
    problem = "the rectangle to render is empty";
  } else if (CGRectIsInfinite(rect) || CGRectIntegral(rect).size.width > kLongestSide ||
             CGRectIntegral(rect).size.height > kLongestSide) {
    problem = "the rectangle to render has more than 32768 pixels on a side";
  }
  if (!problem.empty()) {
    fail(error, problem);
    return std::nullopt;
  }
  return samplesTouched(flippedRect(rect));
}

PictureColor colorOf(const CVPixelBufferRef& buffer, size_t width, size_t height) {
  std::map<std::string, std::string> attachments;
  for (const auto* key : {&kCVImageBufferColorPrimariesKey, &kCVImageBufferTransferFunctionKey, &kCVImageBufferYCbCrMatrixKey}) {
    const std::string value = CVBufferGetAttachment(buffer, *key);
    if (!value.empty()) attachments[*key] = value;
  }
  PictureColor color = pictureColorWithAttachments(defaultPictureColor(width, height), attachments);
  color.fullRange = CVPixelBufferGetPixelFormatType(buffer) == kCVPixelFormatType_420YpCbCr8BiPlanarFullRange;
  return color;
}

BiplanarPlanes planesOf(const CVPixelBufferRef& buffer) {
  return {static_cast<uint8_t*>(CVPixelBufferGetBaseAddressOfPlane(buffer, 0)),
          static_cast<ptrdiff_t>(CVPixelBufferGetBytesPerRowOfPlane(buffer, 0)),
          static_cast<uint8_t*>(CVPixelBufferGetBaseAddressOfPlane(buffer, 1)),
          static_cast<ptrdiff_t>(CVPixelBufferGetBytesPerRowOfPlane(buffer, 1))};
}

}  // namespace

class CIContext::Renderer {
 public:
  Renderer() : memory_(PicturePool::shared()) {}

  std::optional<CIRaster> draw(const CIImageRef& image, const SampleRect& rect, std::optional<NSError>* error) {
    CIRenderer renderer(memory_);
    auto raster = renderer.render(image, rect);
    if (!raster) fail(error, renderer.problem());
    return raster;
  }

  PictureRef makePicture(const CIImageRef& image, const SampleRect& rect, const PictureColor& color, bool keepsAlpha,
                         std::optional<NSError>* error) {
    const auto layers = layersOf(image, rect, color);
    const bool isOpaque = layers && !layers->empty() && !layers->front().picture->hasAlpha() && fills(layers->front(), rect);
    if (layers && (isOpaque || !keepsAlpha)) {
      PictureRef picture = compositor_.compose(*layers, rect.width(), rect.height(), color);
      if (!picture) fail(error, "memory has run out");
      return picture;
    }
    const auto raster = draw(image, rect, error);
    return raster ? convert(*raster, color, keepsAlpha, error) : nullptr;
  }

 private:
  static bool fills(const PictureLayer& layer, const SampleRect& rect) {
    const bool isUpright = layer.transform.b == 0 && layer.transform.c == 0;
    const CGRect place = CGRectApplyAffineTransform({CGPointZero, layer.displaySize}, layer.transform);
    return isUpright && CGRectContainsRect(place, CGRectMake(0, 0, rect.width(), rect.height()));
  }

  PictureRef convert(const CIRaster& raster, const PictureColor& color, bool keepsAlpha, std::optional<NSError>* error) {
    const int width = raster.rect.width(), height = raster.rect.height();
    const bool alpha = keepsAlpha && !raster.isOpaque;
    const ptrdiff_t stride = ptrdiff_t{4} * width;
    const auto bytes = memory_.drawing().pool.makeBytes(static_cast<size_t>(stride) * static_cast<size_t>(height));
    const auto picture = memory_.drawing().pool.make(width, height, color, alpha);
    if (!bytes || !picture) {
      fail(error, "memory has run out");
      return nullptr;
    }
    mergeBGRA(raster.planes, bytes.get(), stride);
    // Premultiplied colours are those over black.
    readBGRA(bytes.get(), stride, alpha ? AlphaMode::premultiplied : AlphaMode::ignored, *picture);
    return picture;
  }

  CIRenderMemory memory_;
  LayerCompositor compositor_;
};

CIContext::CIContext() : renderer_(std::make_unique<Renderer>()) {}
CIContext::~CIContext() = default;
CIContextRef CIContext::context() { return CIContextRef(new CIContext()); }

bool CIContext::render(const CIImageRef& image, const CVPixelBufferRef& toCVPixelBuffer, std::optional<NSError>* error) {
  const double width = static_cast<double>(CVPixelBufferGetWidth(toCVPixelBuffer));
  const double height = static_cast<double>(CVPixelBufferGetHeight(toCVPixelBuffer));
  return render(image, toCVPixelBuffer, CGRectMake(0, 0, width, height), error);
}

bool CIContext::render(const CIImageRef& image, const CVPixelBufferRef& toCVPixelBuffer, const CGRect& bounds,
                       std::optional<NSError>* error) {
  if (!toCVPixelBuffer) return fail(error, "there is no pixel buffer to render into");
  auto rect = samplesOf(image, bounds, error);
  if (!rect) return false;
  const size_t width = CVPixelBufferGetWidth(toCVPixelBuffer), height = CVPixelBufferGetHeight(toCVPixelBuffer);
  // All of the buffer is written, from its bottom left on; only the asked part of the image is.
  const CGRect all =
      CGRectMake(rect->x0, rect->y1 - static_cast<double>(height), static_cast<double>(width), static_cast<double>(height));
  const CIImageRef part = image->imageByCroppingToRect(flippedRect(rectOf(*rect)));
  rect = samplesTouched(all);
  const bool isPlanar = CVPixelBufferIsPlanar(toCVPixelBuffer);
  const PictureColor color = colorOf(toCVPixelBuffer, width, height);
  const PictureRef picture = isPlanar ? renderer_->makePicture(part, *rect, color, false, error) : nullptr;
  const auto raster = isPlanar ? std::nullopt : renderer_->draw(part, *rect, error);
  if (!picture && !raster) return false;
  if (CVPixelBufferLockBaseAddress(toCVPixelBuffer, 0) != kCVReturnSuccess) return fail(error, "memory has run out");
  if (isPlanar) {
    writeBiplanar(*picture, color.matrix, color.fullRange, planesOf(toCVPixelBuffer));
  } else {
    mergeBGRA(raster->planes, static_cast<uint8_t*>(CVPixelBufferGetBaseAddress(toCVPixelBuffer)),
              static_cast<ptrdiff_t>(CVPixelBufferGetBytesPerRow(toCVPixelBuffer)));
  }
  CVPixelBufferUnlockBaseAddress(toCVPixelBuffer, 0);
  return true;
}

CGImageRef CIContext::createCGImage(const CIImageRef& image, const CGRect& fromRect, std::optional<NSError>* error) {
  const auto rect = samplesOf(image, fromRect, error);
  if (!rect) return nullptr;
  const auto raster = renderer_->draw(image, *rect, error);
  if (!raster) return nullptr;
  const size_t width = static_cast<size_t>(rect->width()), height = static_cast<size_t>(rect->height());
  const auto bytes = CVPixelMemory::allocate(4 * width * height);
  if (!bytes) {
    fail(error, "memory has run out");
    return nullptr;
  }
  mergeBGRA(raster->planes, bytes.get(), static_cast<ptrdiff_t>(4 * width));
  return CGImageCreate(width, height, 4 * width, bytes,
                       raster->isOpaque ? kCGImageAlphaNoneSkipFirst : kCGImageAlphaPremultipliedFirst,
                       CGColorSpaceCreateWithName(kCGColorSpaceSRGB));
}

PictureRef CIContext::createPicture(const CIImageRef& image, const CGRect& fromRect, const PictureColor& color, bool keepsAlpha,
                                    std::optional<NSError>* error) {
  const auto rect = samplesOf(image, fromRect, error);
  return rect ? renderer_->makePicture(image, *rect, color, keepsAlpha, error) : nullptr;
}

bool CIContext::writePNGRepresentationOfImage(const CIImageRef& image, const std::filesystem::path& toURL,
                                              std::optional<NSError>* error) {
  const CGImageRef bitmap = createCGImage(image, image ? image->extent() : CGRectNull, error);
  return bitmap && CGImageWritePNG(bitmap, toURL, error);
}

}  // namespace vidloom
