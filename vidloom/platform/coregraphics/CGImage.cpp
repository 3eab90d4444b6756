#include "vidloom/platform/coregraphics/CGImage.h"

#include <cstring>
#include <mutex>

#include "vidloom/platform/avfoundation/AVError.h"
#include "vidloom/platform/coregraphics/CGImageAlpha.h"
#include "vidloom/platform/corevideo/CVPixelBuffer.h"
#include "vidloom/platform/corevideo/CVPixelMemory.h"
#include "vidloom/platform/ffmpeg/PngWriter.h"
#include "vidloom/platform/ffmpeg/StillImageDecoder.h"
#include "vidloom/platform/pixels/PicturePool.h"

namespace vidloom {

class CGImage {
 public:
  struct Bitmap {
    size_t width, height, bytesPerRow;
    std::shared_ptr<const uint8_t> bytes;
    CGImageAlphaInfo alphaInfo;
    CGColorSpaceRef space;
  };
  explicit CGImage(Bitmap bitmap) : bitmap_(std::move(bitmap)) {}

  const Bitmap& bitmap() const { return bitmap_; }
  AlphaMode alphaMode() const { return alphaModeOf(bitmap_.alphaInfo); }
  PictureRef copyPicture(const PictureColor& color);

 private:
  PictureRef convert(const PictureColor& color);
  bool isOpaque();

  const Bitmap bitmap_;
  std::mutex mutex_;
  std::weak_ptr<const Picture> lastPicture_;
  std::optional<bool> isOpaque_;
};

namespace {

constexpr size_t kMaximumSide = 32768, kPixelBytes = 4;

bool isEveryPixelOpaque(const CGImage::Bitmap& bitmap) {
  return isOpaqueBGRA(bitmap.bytes.get(), static_cast<ptrdiff_t>(bitmap.bytesPerRow), static_cast<int>(bitmap.width),
                      static_cast<int>(bitmap.height));
}

CGColorSpaceRef spaceOf(const StillImage& still) {
  switch (still.model) {
    case StillImageModel::grey:
      return CGColorSpaceCreateWithName(kCGColorSpaceGenericGrayGamma2_2);
    case StillImageModel::indexed:
      return CGColorSpaceCreateIndexed(CGColorSpaceCreateWithName(kCGColorSpaceSRGB));
    case StillImageModel::cmyk:
      return CGColorSpaceCreateWithName(kCGColorSpaceGenericCMYK);
    case StillImageModel::rgb:
      break;
  }
  return still.hasOtherProfile ? CGColorSpaceCreateDeviceRGB() : CGColorSpaceCreateWithName(kCGColorSpaceSRGB);
}

/// The pixels as they are now, B, G, R, A. False where memory has run out.
bool copyPixels(const CVPixelBufferRef& buffer, uint8_t* bgra, size_t bytesPerRow) {
  if (CVPixelBufferIsPlanar(buffer)) {
    const PictureRef picture = CVPixelBufferCopyPicture(buffer);
    if (picture) writeBGRA(*picture, AlphaMode::ignored, bgra, static_cast<ptrdiff_t>(bytesPerRow));
    return picture != nullptr;
  }
  if (CVPixelBufferLockBaseAddress(buffer, kCVPixelBufferLock_ReadOnly) != kCVReturnSuccess) return false;
  const auto* pixels = static_cast<const uint8_t*>(CVPixelBufferGetBaseAddress(buffer));
  for (size_t y = 0; y < CVPixelBufferGetHeight(buffer); ++y) {
    std::memcpy(bgra + y * bytesPerRow, pixels + y * CVPixelBufferGetBytesPerRow(buffer), bytesPerRow);
  }
  CVPixelBufferUnlockBaseAddress(buffer, kCVPixelBufferLock_ReadOnly);
  return true;
}

}  // namespace

PictureRef CGImage::copyPicture(const PictureColor& color) {
  const std::lock_guard lock(mutex_);
  PictureRef picture = lastPicture_.lock();
  if (!picture || picture->color != color) picture = convert(color);
  lastPicture_ = picture;
  return picture;
}

PictureRef CGImage::convert(const PictureColor& color) {
  const bool opaque = isOpaque();
  const int width = static_cast<int>(bitmap_.width), height = static_cast<int>(bitmap_.height);
  const auto picture = PicturePool::shared().make(width, height, color, !opaque);
  if (!picture) return nullptr;
  readBGRA(bitmap_.bytes.get(), static_cast<ptrdiff_t>(bitmap_.bytesPerRow), opaque ? AlphaMode::ignored : alphaMode(), *picture);
  return picture;
}

bool CGImage::isOpaque() {
  if (!isOpaque_) isOpaque_ = alphaMode() == AlphaMode::ignored || isEveryPixelOpaque(bitmap_);
  return *isOpaque_;
}

CGImageRef CGImageCreate(size_t width, size_t height, size_t bytesPerRow, std::shared_ptr<const uint8_t> bytes,
                         CGImageAlphaInfo alphaInfo, CGColorSpaceRef space) {
  const bool hasSize = width > 0 && height > 0 && width <= kMaximumSide && height <= kMaximumSide;
  if (!hasSize || bytesPerRow < width * kPixelBytes || !bytes || alphaInfo >= kCGImageAlphaOnly) return nullptr;
  if (!space) space = CGColorSpaceCreateDeviceRGB();
  return std::make_shared<CGImage>(CGImage::Bitmap{width, height, bytesPerRow, std::move(bytes), alphaInfo, std::move(space)});
}

CGImageRef CGImageCreateWithContentsOfURL(const std::filesystem::path& url, std::optional<NSError>* error) {
  const auto still = decodeStillImage(url, MediaLimits{}, error);
  if (!still) return nullptr;
  const auto alpha = still->hasAlpha ? kCGImageAlphaFirst : kCGImageAlphaNone;
  return CGImageCreate(still->width, still->height, still->width * kPixelBytes, still->bytes, alpha, spaceOf(*still));
}

CGImageRef CGImageCreateWithPixelBuffer(const CVPixelBufferRef& pixelBuffer) {
  if (!pixelBuffer) return nullptr;
  const size_t width = CVPixelBufferGetWidth(pixelBuffer), height = CVPixelBufferGetHeight(pixelBuffer);
  const auto bytes = CVPixelMemory::allocate(width * height * kPixelBytes);
  if (!bytes || !copyPixels(pixelBuffer, bytes.get(), width * kPixelBytes)) return nullptr;
  CGImage::Bitmap bitmap{
      width, height, width * kPixelBytes, bytes, kCGImageAlphaNone, CGColorSpaceCreateWithName(kCGColorSpaceSRGB)};
  if (!isEveryPixelOpaque(bitmap)) bitmap.alphaInfo = kCGImageAlphaPremultipliedFirst;
  return std::make_shared<CGImage>(std::move(bitmap));
}

size_t CGImageGetWidth(const CGImageRef& image) { return image ? image->bitmap().width : 0; }
size_t CGImageGetHeight(const CGImageRef& image) { return image ? image->bitmap().height : 0; }
size_t CGImageGetBytesPerRow(const CGImageRef& image) { return image ? image->bitmap().bytesPerRow : 0; }
CGImageAlphaInfo CGImageGetAlphaInfo(const CGImageRef& image) { return image ? image->bitmap().alphaInfo : kCGImageAlphaNone; }
CGColorSpaceRef CGImageGetColorSpace(const CGImageRef& image) { return image ? image->bitmap().space : nullptr; }
const uint8_t* CGImageGetBytes(const CGImageRef& image) { return image ? image->bitmap().bytes.get() : nullptr; }

PictureRef CGImageCopyPicture(const CGImageRef& image, const PictureColor& color) {
  return image ? image->copyPicture(color) : nullptr;
}

bool CGImageWritePNG(const CGImageRef& image, const std::filesystem::path& url, std::optional<NSError>* error) {
  if (!image) {
    if (error) *error = AVMakeError(AVErrorInvalidSourceMedia, "Cannot write \"" + url.string() + "\": there is no image", url);
    return false;
  }
  const CGImage::Bitmap& bitmap = image->bitmap();
  const PngPixels pixels{static_cast<int>(bitmap.width), static_cast<int>(bitmap.height), bitmap.bytes.get(),
                         static_cast<ptrdiff_t>(bitmap.bytesPerRow), image->alphaMode()};
  return writePng(pixels, url, error);
}

}  // namespace vidloom
