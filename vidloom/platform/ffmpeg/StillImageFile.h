// Image files before they are decoded: what they say of themselves, and the bytes that are the picture.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "vidloom/platform/ffmpeg/BoxReader.h"

namespace vidloom {

enum class StillImageFormat : uint8_t { png, jpeg, webp, gif, tiff };

struct StillImageFile {
  StillImageFormat format{};
  int64_t width = 0, height = 0;   ///< of the whole picture, as it is stored
  int orientation = 1;             ///< EXIF's code, 1 to 8: how to turn what is stored
  int components = 0;              ///< of a JPEG
  bool isPremultiplied = false;    ///< colours are multiplied by alpha already
  int64_t frameX = 0, frameY = 0;  ///< where what is decoded lies in the picture
  std::vector<uint8_t> data;       ///< for the decoder: the first picture, without what could only cost time and memory

  /// Nothing, with what is wrong as a sentence without its subject ("is cut off"), for bytes that are no whole file of a known
  /// format. Sizes are told but not judged.
  static std::optional<StillImageFile> inspect(ByteSpan bytes, std::string& problem);
};

}  // namespace vidloom
