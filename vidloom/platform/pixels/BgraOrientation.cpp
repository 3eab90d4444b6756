#include "vidloom/platform/pixels/BgraOrientation.h"

#include <libyuv/planar_functions.h>
#include <libyuv/rotate_argb.h>

namespace vidloom {

void orientBGRA(const uint8_t* source, ptrdiff_t sourceStride, int width, int height, const Orientation& orientation,
                uint8_t* destination, ptrdiff_t stride) {
  const int from = static_cast<int>(sourceStride), to = static_cast<int>(stride);
  // A negative height turns the source upside down on the way.
  if (orientation.transpose) {
    const bool isMirrored = orientation.flipX == orientation.flipY;
    const auto turn = orientation.flipY ? libyuv::kRotate270 : libyuv::kRotate90;
    libyuv::ARGBRotate(source, from, destination, to, width, isMirrored ? -height : height, turn);
  } else if (orientation.flipX) {
    libyuv::ARGBMirror(source, from, destination, to, width, orientation.flipY ? -height : height);
  } else {
    libyuv::ARGBCopy(source, from, destination, to, width, orientation.flipY ? -height : height);
  }
}

}  // namespace vidloom
