#include "vidloom/platform/ffmpeg/BoxWriter.h"

namespace vidloom {

void BoxWriter::number(uint64_t value, int byteCount) {
  for (int shift = 8 * (byteCount - 1); shift >= 0; shift -= 8) bytes_.push_back(static_cast<uint8_t>(value >> shift));
}

void BoxWriter::text(std::string_view characters) { bytes_.insert(bytes_.end(), characters.begin(), characters.end()); }

void BoxWriter::open(std::string_view fourLetters) {
  starts_.push_back(bytes_.size());
  u32(0);
  text(fourLetters);
}

void BoxWriter::openFull(std::string_view fourLetters, int version, uint32_t flags) {
  open(fourLetters);
  u8(static_cast<uint64_t>(version));
  u24(flags);
}

void BoxWriter::close() {
  const size_t start = starts_.back();
  starts_.pop_back();
  const size_t size = bytes_.size() - start;
  for (size_t i = 0; i < 4; ++i) bytes_[start + i] = static_cast<uint8_t>(size >> (24 - 8 * i));
}

}  // namespace vidloom
