#include "vidloom/platform/ffmpeg/TiffDirectory.h"

namespace vidloom {

namespace {

constexpr size_t kHeaderBytes = 8, kEntryBytes = 12;
constexpr uint32_t kMagic = 42;
constexpr uint32_t kShort = 3, kLong = 4;

}  // namespace

std::optional<TiffDirectory> TiffDirectory::read(ByteSpan tiff) {
  if (tiff.size() < kHeaderBytes || tiff[0] != tiff[1] || (tiff[0] != 'I' && tiff[0] != 'M')) return std::nullopt;
  TiffDirectory directory(tiff, tiff[0] == 'M');
  if (directory.number(2, 2) != kMagic) return std::nullopt;
  return directory;
}

std::optional<uint32_t> TiffDirectory::value(uint16_t tag) const {
  const size_t start = number(4, 4);
  const size_t count = number(start, 2);
  for (size_t i = 0; i < count; ++i) {
    const size_t entry = start + 2 + i * kEntryBytes;
    if (entry + kEntryBytes > tiff_.size()) return std::nullopt;
    if (number(entry, 2) != tag) continue;
    const uint32_t type = number(entry + 2, 2);
    if (number(entry + 4, 4) != 1 || (type != kShort && type != kLong)) return std::nullopt;
    return number(entry + 8, type == kShort ? 2 : 4);
  }
  return std::nullopt;
}

int TiffDirectory::orientation() const {
  const uint32_t code = value(kTiffOrientation).value_or(1);
  return code >= 1 && code <= 8 ? static_cast<int>(code) : 1;
}

uint32_t TiffDirectory::number(size_t at, int byteCount) const {
  uint32_t number = 0;
  for (int i = 0; i < byteCount; ++i) {
    const size_t place = at + static_cast<size_t>(bigEndian_ ? i : byteCount - 1 - i);
    number = number << 8 | (place < tiff_.size() ? tiff_[place] : 0U);
  }
  return number;
}

}  // namespace vidloom
