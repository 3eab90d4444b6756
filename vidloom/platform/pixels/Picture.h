// The pictures that travel through the engine: planar 4:2:0, 8 bits, shared and never changed once made.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

namespace vidloom {

/// The YCbCr matrices that pictures come in (ITU-R BT.601-7 and BT.709-6).
enum class ColorMatrix : uint8_t { bt601, bt709 };

/// How the codes of a picture are to be read. What a file leaves untagged is filled in by the reader of the file, so a
/// Picture always says what it is taken for.
struct PictureColor {
  ColorMatrix matrix = ColorMatrix::bt709;
  bool fullRange = false;            ///< 0..255 instead of 16..235 (luma) and 16..240 (chroma)
  std::string primaries = "bt709";   ///< FFmpeg's names: "bt709", "smpte170m", "bt470bg", ...
  std::string transfer = "bt709";    ///< FFmpeg's names: "bt709", "smpte170m", "iec61966-2-1", ...
  std::string matrixName = "bt709";  ///< the tag to write: "bt709", "smpte170m" or "bt470bg"
  friend bool operator==(const PictureColor&, const PictureColor&) = default;
};

/// One plane of 8-bit samples. Rows are `stride` bytes apart; only the picture's own width may be read.
struct PicturePlane {
  const uint8_t* data = nullptr;
  ptrdiff_t stride = 0;
};

/// A picture of width x height luma samples; chroma planes have ceil(width/2) x ceil(height/2) samples. `alpha`, where
/// present, is full range (0 transparent, 255 opaque), width x height, and the colour planes are not premultiplied.
/// Immutable: whoever holds a reference may read it from any thread for as long as it is held.
struct Picture {
  int width = 0;
  int height = 0;
  PicturePlane y, cb, cr;
  PicturePlane alpha;  ///< data null: opaque
  PictureColor color;
  std::shared_ptr<const void> owner;  ///< keeps the planes' memory

  int chromaWidth() const { return (width + 1) / 2; }
  int chromaHeight() const { return (height + 1) / 2; }
  bool hasAlpha() const { return alpha.data != nullptr; }
};

using PictureRef = std::shared_ptr<const Picture>;

/// A picture whose planes may still be written, fresh from a PicturePool. Give it away as a PictureRef when it is done.
struct MutablePicture : Picture {
  uint8_t* mutableY() { return const_cast<uint8_t*>(y.data); }
  uint8_t* mutableCb() { return const_cast<uint8_t*>(cb.data); }
  uint8_t* mutableCr() { return const_cast<uint8_t*>(cr.data); }
  uint8_t* mutableAlpha() { return const_cast<uint8_t*>(alpha.data); }
};

}  // namespace vidloom
