// What the alpha information of a bitmap means for its bytes.
#pragma once

#include "vidloom/platform/coregraphics/CGImage.h"
#include "vidloom/platform/pixels/PixelConversion.h"

namespace vidloom {

AlphaMode alphaModeOf(CGImageAlphaInfo info);

}  // namespace vidloom
