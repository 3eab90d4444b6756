// Pixel formats in settings and attributes.
#pragma once

#include <optional>

#include "vidloom/platform/corevideo/CVPixelBuffer.h"

namespace vidloom {

/// The format under kCVPixelBufferPixelFormatTypeKey where it is one of '420f', '420v' and 'BGRA'; nullopt for others and none.
std::optional<OSType> pixelFormatIn(const NSDictionary& settings);

}  // namespace vidloom
