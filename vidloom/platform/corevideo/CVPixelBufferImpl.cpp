#include "vidloom/platform/corevideo/CVPixelBufferImpl.h"

#include "vidloom/platform/corevideo/CVPixelColor.h"
#include "vidloom/platform/pixels/PicturePool.h"
#include "vidloom/platform/pixels/PixelConversion.h"

namespace vidloom {

namespace {

BiplanarPlanes biplanarPlanes(const CVPixelLayout& layout, uint8_t* memory) {
  return {memory + layout.planes[0].offset, static_cast<ptrdiff_t>(layout.planes[0].bytesPerRow), memory + layout.planes[1].offset,
          static_cast<ptrdiff_t>(layout.planes[1].bytesPerRow)};
}

bool isFullRange(const CVPixelLayout& layout) { return layout.format == kCVPixelFormatType_420YpCbCr8BiPlanarFullRange; }

}  // namespace

CVPixelBuffer::CVPixelBuffer(const CVPixelLayout& layout, NSDictionary attributes, CVPixelMemory::Block memory)
    : layout_(layout), attributes_(std::move(attributes)), memory_(std::move(memory)) {}

CVPixelBuffer::CVPixelBuffer(const CVPixelLayout& layout, PictureRef picture)
    : layout_(layout), overBlack_(picture), withAlpha_(picture), originalColor_(picture->color) {}

CVReturn CVPixelBuffer::lock(bool readOnly) {
  const std::lock_guard lock(mutex_);
  if (!materialise()) return kCVReturnAllocationFailed;
  if (!readOnly) dropPictures();
  ++(readOnly ? readLocks_ : writeLocks_);
  return kCVReturnSuccess;
}

CVReturn CVPixelBuffer::unlock(bool readOnly) {
  const std::lock_guard lock(mutex_);
  int& locks = readOnly ? readLocks_ : writeLocks_;
  if (locks == 0) return kCVReturnInvalidArgument;
  --locks;
  return kCVReturnSuccess;
}

uint8_t* CVPixelBuffer::planeAddress(size_t planeIndex) const {
  const std::lock_guard lock(mutex_);
  return readLocks_ + writeLocks_ > 0 ? memory_.get() + layout_.planes[planeIndex].offset : nullptr;
}

void CVPixelBuffer::setAttachment(const std::string& key, const std::string& value) {
  const std::lock_guard lock(mutex_);
  if (attachmentLocked(key) == value) return;
  if (!colorAttachment(color(), key).empty()) {
    // The same pixels from now on mean another picture.
    materialise();
    dropPictures();
  }
  attachments_[key] = value;
}

std::string CVPixelBuffer::attachment(const std::string& key) const {
  const std::lock_guard lock(mutex_);
  return attachmentLocked(key);
}

PictureRef CVPixelBuffer::copyPicture(CVPictureAlpha alpha) {
  const std::lock_guard lock(mutex_);
  PictureRef& known = alpha == CVPictureAlpha::keep ? withAlpha_ : overBlack_;
  if (known) return known;
  if (!materialise()) return nullptr;
  PictureRef picture = convertPixels(alpha);
  if (picture && writeLocks_ == 0) known = picture;
  return picture;
}

bool CVPixelBuffer::materialise() {
  if (memory_) return true;
  // Where a picture overwrites it all, memory that was used before will do.
  memory_ = withAlpha_ ? PicturePool::shared().makeBytes(layout_.byteCount) : CVPixelMemory::allocate(layout_.byteCount);
  if (memory_ && withAlpha_) writePicture(*withAlpha_);
  return memory_ != nullptr;
}

void CVPixelBuffer::writePicture(const Picture& picture) {
  if (layout_.planeCount > 0) {
    return writeBiplanar(picture, picture.color.matrix, isFullRange(layout_), biplanarPlanes(layout_, memory_.get()));
  }
  writeBGRA(picture, picture.hasAlpha() ? AlphaMode::premultiplied : AlphaMode::ignored, memory_.get(),
            static_cast<ptrdiff_t>(layout_.planes[0].bytesPerRow));
}

void CVPixelBuffer::dropPictures() {
  overBlack_ = nullptr;
  withAlpha_ = nullptr;
}

PictureRef CVPixelBuffer::convertPixels(CVPictureAlpha alpha) const {
  const CVPixelPlane& plane = layout_.planes[0];
  const bool transparent = alpha == CVPictureAlpha::keep && !isOpaque();
  PictureColor target = color();
  target.fullRange = false;
  const auto picture =
      PicturePool::shared().make(static_cast<int>(plane.width), static_cast<int>(plane.height), target, transparent);
  if (!picture) return nullptr;
  if (layout_.planeCount > 0) {
    readBiplanar(biplanarPlanes(layout_, memory_.get()), target.matrix, isFullRange(layout_), *picture);
  } else {
    // Premultiplied colours are those over black, so without alpha they are taken as they stand.
    readBGRA(memory_.get(), static_cast<ptrdiff_t>(plane.bytesPerRow), transparent ? AlphaMode::premultiplied : AlphaMode::ignored,
             *picture);
  }
  return picture;
}

PictureColor CVPixelBuffer::color() const {
  const CVPixelPlane& plane = layout_.planes[0];
  return pictureColorWithAttachments(originalColor_.value_or(defaultPictureColor(plane.width, plane.height)), attachments_);
}

std::string CVPixelBuffer::attachmentLocked(const std::string& key) const {
  const auto found = attachments_.find(key);
  if (found != attachments_.end()) return found->second;
  return originalColor_ ? colorAttachment(*originalColor_, key) : std::string();
}

bool CVPixelBuffer::isOpaque() const {
  if (layout_.planeCount > 0) return true;
  const CVPixelPlane& plane = layout_.planes[0];
  return isOpaqueBGRA(memory_.get(), static_cast<ptrdiff_t>(plane.bytesPerRow), static_cast<int>(plane.width),
                      static_cast<int>(plane.height));
}

}  // namespace vidloom
