// Writes PNG files.
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <optional>

#include "vidloom/platform/foundation/NSError.h"
#include "vidloom/platform/pixels/PixelConversion.h"

namespace vidloom {

struct PngPixels {
  int width = 0, height = 0;
  const uint8_t* bgra = nullptr;
  ptrdiff_t stride = 0;
  AlphaMode alpha = AlphaMode::ignored;  ///< ignored: the file has no alpha
};

/// Writes 8 bits a channel, tagged as sRGB, with straight alpha. The file takes its place when it is complete. False with an error
/// that names the file and the cause. Any thread.
[[nodiscard]] bool writePng(const PngPixels& pixels, const std::filesystem::path& path, std::optional<NSError>* error);

}  // namespace vidloom
