// Decodes image files.
#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>

#include "vidloom/platform/ffmpeg/MediaFile.h"

namespace vidloom {

/// What the values in an image file mean; the decoded pixels are B, G, R, A in any case.
enum class StillImageModel : uint8_t { rgb, grey, indexed, cmyk };

/// An upright picture: bytes B, G, R, A with straight alpha, rows of 4 * width bytes.
struct StillImage {
  size_t width = 0, height = 0;
  std::shared_ptr<const uint8_t> bytes;
  bool hasAlpha = false;  ///< the file has alpha; without, every fourth byte is 255
  StillImageModel model = StillImageModel::rgb;
  bool hasOtherProfile = false;  ///< the file carries a profile that is not the one of sRGB
};

/// Reads a PNG, JPEG, WebP, GIF or TIFF file: its first picture, turned as the file's EXIF orientation says. Nothing with an error
/// that names the file and the cause for what is none of these, damaged, cut off or beyond the limits. Any thread.
std::optional<StillImage> decodeStillImage(const std::filesystem::path& path, const MediaLimits& limits,
                                           std::optional<NSError>* error);

}  // namespace vidloom
