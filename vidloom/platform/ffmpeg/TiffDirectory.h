// The first directory of a TIFF structure: of a TIFF file, or of the EXIF block in another file.
#pragma once

#include <cstdint>
#include <optional>

#include "vidloom/platform/ffmpeg/BoxReader.h"

namespace vidloom {

inline constexpr uint16_t kTiffWidth = 256, kTiffHeight = 257, kTiffCompression = 259, kTiffOrientation = 274, kTiffTileWidth = 322,
                          kTiffExtraSamples = 338;

/// Looks into the bytes, which must stay.
class TiffDirectory {
 public:
  /// Nothing where the bytes are no TIFF structure.
  static std::optional<TiffDirectory> read(ByteSpan tiff);

  /// The single whole number of a tag; nothing where there is none.
  std::optional<uint32_t> value(uint16_t tag) const;
  /// The orientation of the picture by its code, 1 to 8; 1 where there is none that makes sense.
  int orientation() const;

 private:
  TiffDirectory(ByteSpan tiff, bool bigEndian) : tiff_(tiff), bigEndian_(bigEndian) {}
  /// Zero beyond the end.
  uint32_t number(size_t at, int byteCount) const;

  ByteSpan tiff_;
  bool bigEndian_;
};

}  // namespace vidloom
