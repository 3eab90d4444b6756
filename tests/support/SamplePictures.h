// Pictures for whoever takes pictures.
#pragma once

#include <cstdint>

#include "vidloom/platform/pixels/Picture.h"

namespace vidloom::testing {

/// A grey picture that carries `index` in its luma (see drawFrameIndex), limited range BT.709.
PictureRef numberedPicture(int index, int width, int height);
/// Noise in all planes, another for every seed: hard to compress.
PictureRef noisyPicture(uint32_t seed, int width, int height);

}  // namespace vidloom::testing
