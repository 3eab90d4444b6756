// Single planes of 8-bit samples, as the kernels take them.
#pragma once

#include <cstddef>
#include <cstdint>

#include "vidloom/platform/pixels/Picture.h"

namespace vidloom {

/// A plane to read: `height` rows of `width` samples, `stride` bytes apart.
struct PlaneView {
  const uint8_t* data = nullptr;
  ptrdiff_t stride = 0;
  int width = 0;
  int height = 0;

  const uint8_t* row(int y) const { return data + y * stride; }
};

/// A plane to write.
struct MutablePlaneView {
  uint8_t* data = nullptr;
  ptrdiff_t stride = 0;
  int width = 0;
  int height = 0;

  uint8_t* row(int y) const { return data + y * stride; }
  PlaneView view() const { return {data, stride, width, height}; }
};

/// The planes of a picture in the order Y, Cb, Cr, alpha.
PlaneView planeOf(const Picture& picture, int index);
MutablePlaneView planeOf(MutablePicture& picture, int index);

}  // namespace vidloom
