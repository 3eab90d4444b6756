// Builds the boxes of an ISO media file in memory.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

namespace vidloom {

/// Numbers are written big-endian. Boxes nest; each open() needs its close().
class BoxWriter {
 public:
  void open(std::string_view fourLetters);
  void openFull(std::string_view fourLetters, int version, uint32_t flags);
  void close();

  void u8(uint64_t value) { number(value, 1); }
  void u16(uint64_t value) { number(value, 2); }
  void u24(uint64_t value) { number(value, 3); }
  void u32(uint64_t value) { number(value, 4); }
  void u64(uint64_t value) { number(value, 8); }
  void text(std::string_view characters);
  void zeros(size_t byteCount) { bytes_.resize(bytes_.size() + byteCount); }
  void bytes(std::span<const uint8_t> raw) { bytes_.insert(bytes_.end(), raw.begin(), raw.end()); }

  const std::vector<uint8_t>& data() const { return bytes_; }

 private:
  void number(uint64_t value, int byteCount);
  std::vector<uint8_t> bytes_;
  std::vector<size_t> starts_;
};

}  // namespace vidloom
