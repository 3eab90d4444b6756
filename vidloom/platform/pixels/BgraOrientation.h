// Quarter turns and mirrors of pixels of four bytes.
#pragma once

#include <cstddef>
#include <cstdint>

#include "vidloom/platform/pixels/PlaneOrientation.h"

namespace vidloom {

/// Writes width x height pixels in that orientation; the destination has that size, sides exchanged if it transposes.
void orientBGRA(const uint8_t* source, ptrdiff_t sourceStride, int width, int height, const Orientation& orientation,
                uint8_t* destination, ptrdiff_t stride);

}  // namespace vidloom
