// The container of WebP pictures.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "vidloom/platform/ffmpeg/BoxReader.h"

namespace vidloom {

/// Looks into the bytes, which must stay.
class WebpFile {
 public:
  static bool isWebp(ByteSpan bytes);
  /// False with what is wrong ("is cut off").
  bool read(ByteSpan bytes, std::string& problem);

  /// Of the whole picture, in which the first frame lies at frameX, frameY.
  uint32_t width() const { return width_; }
  uint32_t height() const { return height_; }
  uint32_t frameX() const { return frameX_; }
  uint32_t frameY() const { return frameY_; }
  ByteSpan exif() const { return exif_; }
  /// A file of its own with nothing but the first frame.
  std::vector<uint8_t> takeFirstFrame();

 private:
  struct Chunk {
    uint32_t type = 0;
    ByteSpan body;
  };
  static bool next(ByteSpan& rest, Chunk& chunk);
  void readChunk(const Chunk& chunk);
  void readAnimationFrame(ByteSpan body);
  void readPicture(const Chunk& chunk);
  void append(const Chunk& chunk);

  uint32_t width_ = 0, height_ = 0;
  uint32_t frameX_ = 0, frameY_ = 0, frameWidth_ = 0, frameHeight_ = 0;
  bool hasAlphaChunk_ = false, hasPicture_ = false;
  ByteSpan exif_;
  std::vector<uint8_t> frame_;  ///< the chunks of the first frame
};

}  // namespace vidloom
