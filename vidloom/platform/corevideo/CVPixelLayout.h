// Where the planes of a pixel buffer lie in its memory.
#pragma once

#include <array>
#include <optional>

#include "vidloom/platform/corevideo/CVPixelBuffer.h"

namespace vidloom {

struct CVPixelPlane {
  size_t offset = 0;
  size_t width = 0;
  size_t height = 0;
  size_t bytesPerRow = 0;
};

struct CVPixelLayout {
  OSType format = 0;
  std::array<CVPixelPlane, 2> planes;
  size_t planeCount = 0;  ///< 0 for a format that is not planar; planes[0] describes it all the same
  size_t byteCount = 0;   ///< rows begin at multiples of 64; some bytes after the last one may be read

  /// kCVReturnSuccess, kCVReturnInvalidPixelFormat, kCVReturnInvalidArgument (a side of zero) or kCVReturnInvalidSize.
  static CVReturn make(OSType format, size_t width, size_t height, CVPixelLayout& layout);
};

}  // namespace vidloom
