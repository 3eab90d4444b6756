#include "vidloom/platform/reading/PixelFormats.h"

namespace vidloom {

std::optional<OSType> pixelFormatIn(const NSDictionary& settings) {
  double number = 0;
  if (!numberValue(settings, kCVPixelBufferPixelFormatTypeKey, number)) return std::nullopt;
  for (const OSType format : {kCVPixelFormatType_420YpCbCr8BiPlanarFullRange, kCVPixelFormatType_420YpCbCr8BiPlanarVideoRange,
                              kCVPixelFormatType_32BGRA}) {
    if (number == static_cast<double>(format)) return format;
  }
  return std::nullopt;
}

}  // namespace vidloom
