#include "vidloom/platform/corevideo/CVPixelBuffer.h"

#include "vidloom/platform/corevideo/CVPixelBufferImpl.h"

namespace vidloom {

namespace {

/// Null for a plane that the buffer does not have.
const CVPixelPlane* planeOf(const CVPixelBufferRef& pixelBuffer, size_t planeIndex) {
  const bool present = pixelBuffer && planeIndex < pixelBuffer->layout().planeCount;
  return present ? &pixelBuffer->layout().planes[planeIndex] : nullptr;
}

const CVPixelPlane& firstPlane(const CVPixelBufferRef& pixelBuffer) {
  static constexpr CVPixelPlane kNone;
  return pixelBuffer ? pixelBuffer->layout().planes[0] : kNone;
}

bool isReadOnly(CVOptionFlags flags) { return (flags & kCVPixelBufferLock_ReadOnly) != 0; }

}  // namespace

CVReturn CVPixelBufferCreate(size_t width, size_t height, OSType pixelFormatType, const NSDictionary& pixelBufferAttributes,
                             CVPixelBufferRef* pixelBufferOut) {
  if (pixelBufferOut == nullptr) return kCVReturnInvalidArgument;
  *pixelBufferOut = nullptr;
  CVPixelLayout layout;
  const CVReturn status = CVPixelLayout::make(pixelFormatType, width, height, layout);
  if (status == kCVReturnSuccess) *pixelBufferOut = std::make_shared<CVPixelBuffer>(layout, pixelBufferAttributes);
  return status;
}

CVReturn CVPixelBufferLockBaseAddress(const CVPixelBufferRef& pixelBuffer, CVOptionFlags lockFlags) {
  return pixelBuffer ? pixelBuffer->lock(isReadOnly(lockFlags)) : kCVReturnInvalidArgument;
}

CVReturn CVPixelBufferUnlockBaseAddress(const CVPixelBufferRef& pixelBuffer, CVOptionFlags unlockFlags) {
  return pixelBuffer ? pixelBuffer->unlock(isReadOnly(unlockFlags)) : kCVReturnInvalidArgument;
}

size_t CVPixelBufferGetWidth(const CVPixelBufferRef& pixelBuffer) { return firstPlane(pixelBuffer).width; }

size_t CVPixelBufferGetHeight(const CVPixelBufferRef& pixelBuffer) { return firstPlane(pixelBuffer).height; }

OSType CVPixelBufferGetPixelFormatType(const CVPixelBufferRef& pixelBuffer) {
  return pixelBuffer ? pixelBuffer->layout().format : 0;
}

bool CVPixelBufferIsPlanar(const CVPixelBufferRef& pixelBuffer) { return CVPixelBufferGetPlaneCount(pixelBuffer) > 0; }

size_t CVPixelBufferGetPlaneCount(const CVPixelBufferRef& pixelBuffer) {
  return pixelBuffer ? pixelBuffer->layout().planeCount : 0;
}

void* CVPixelBufferGetBaseAddress(const CVPixelBufferRef& pixelBuffer) {
  return pixelBuffer ? pixelBuffer->planeAddress(0) : nullptr;
}

size_t CVPixelBufferGetBytesPerRow(const CVPixelBufferRef& pixelBuffer) { return firstPlane(pixelBuffer).bytesPerRow; }

void* CVPixelBufferGetBaseAddressOfPlane(const CVPixelBufferRef& pixelBuffer, size_t planeIndex) {
  return planeOf(pixelBuffer, planeIndex) ? pixelBuffer->planeAddress(planeIndex) : nullptr;
}

size_t CVPixelBufferGetBytesPerRowOfPlane(const CVPixelBufferRef& pixelBuffer, size_t planeIndex) {
  const CVPixelPlane* plane = planeOf(pixelBuffer, planeIndex);
  return plane ? plane->bytesPerRow : 0;
}

size_t CVPixelBufferGetWidthOfPlane(const CVPixelBufferRef& pixelBuffer, size_t planeIndex) {
  const CVPixelPlane* plane = planeOf(pixelBuffer, planeIndex);
  return plane ? plane->width : 0;
}

size_t CVPixelBufferGetHeightOfPlane(const CVPixelBufferRef& pixelBuffer, size_t planeIndex) {
  const CVPixelPlane* plane = planeOf(pixelBuffer, planeIndex);
  return plane ? plane->height : 0;
}

const NSDictionary& CVPixelBufferGetAttributes(const CVPixelBufferRef& pixelBuffer) {
  static const NSDictionary none;
  return pixelBuffer ? pixelBuffer->attributes() : none;
}

void CVBufferSetAttachment(const CVPixelBufferRef& pixelBuffer, const std::string& key, const std::string& value) {
  if (pixelBuffer) pixelBuffer->setAttachment(key, value);
}

std::string CVBufferGetAttachment(const CVPixelBufferRef& pixelBuffer, const std::string& key) {
  return pixelBuffer ? pixelBuffer->attachment(key) : std::string();
}

CVPixelBufferRef CVPixelBufferCreateWithPicture(std::shared_ptr<const Picture> picture, OSType pixelFormatType) {
  if (!picture || picture->width <= 0 || picture->height <= 0) return nullptr;
  CVPixelLayout layout;
  const CVReturn status =
      CVPixelLayout::make(pixelFormatType, static_cast<size_t>(picture->width), static_cast<size_t>(picture->height), layout);
  return status == kCVReturnSuccess ? std::make_shared<CVPixelBuffer>(layout, std::move(picture)) : nullptr;
}

std::shared_ptr<const Picture> CVPixelBufferCopyPicture(const CVPixelBufferRef& pixelBuffer, CVPictureAlpha alpha) {
  return pixelBuffer ? pixelBuffer->copyPicture(alpha) : nullptr;
}

}  // namespace vidloom
