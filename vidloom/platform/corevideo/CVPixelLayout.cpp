#include "vidloom/platform/corevideo/CVPixelLayout.h"

namespace vidloom {

namespace {

constexpr size_t kRowAlignment = 64;
constexpr size_t kOverreadBytes = 64;
constexpr size_t kMaximumSide = 32768;

/// The plane that begins at `offset`, and the offset after it.
CVPixelPlane placePlane(size_t width, size_t height, size_t bytesPerSample, size_t& offset) {
  const size_t bytesPerRow = (width * bytesPerSample + kRowAlignment - 1) / kRowAlignment * kRowAlignment;
  const CVPixelPlane plane{offset, width, height, bytesPerRow};
  offset += bytesPerRow * height;
  return plane;
}

}  // namespace

CVReturn CVPixelLayout::make(OSType format, size_t width, size_t height, CVPixelLayout& layout) {
  const bool planar =
      format == kCVPixelFormatType_420YpCbCr8BiPlanarFullRange || format == kCVPixelFormatType_420YpCbCr8BiPlanarVideoRange;
  if (!planar && format != kCVPixelFormatType_32BGRA) return kCVReturnInvalidPixelFormat;
  if (width == 0 || height == 0) return kCVReturnInvalidArgument;
  if (width > kMaximumSide || height > kMaximumSide) return kCVReturnInvalidSize;
  layout = {};
  layout.format = format;
  layout.planeCount = planar ? 2 : 0;
  layout.planes[0] = placePlane(width, height, planar ? 1 : 4, layout.byteCount);
  if (planar) layout.planes[1] = placePlane((width + 1) / 2, (height + 1) / 2, 2, layout.byteCount);
  layout.byteCount += kOverreadBytes;
  return kCVReturnSuccess;
}

}  // namespace vidloom
