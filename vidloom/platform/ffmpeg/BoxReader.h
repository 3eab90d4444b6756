// A bounded walk through the boxes of an ISO media file in memory.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace vidloom {

using ByteSpan = std::span<const uint8_t>;

constexpr uint32_t boxType(const char (&name)[5]) {
  uint32_t type = 0;
  for (int i = 0; i < 4; ++i) type = type << 8 | static_cast<uint8_t>(name[i]);
  return type;
}

/// Big-endian numbers from a run of bytes. What lies beyond the end reads as zero and is remembered.
class ByteReader {
 public:
  explicit ByteReader(ByteSpan bytes) : bytes_(bytes) {}
  uint64_t number(size_t byteCount);
  uint8_t u8() { return static_cast<uint8_t>(number(1)); }
  uint16_t u16() { return static_cast<uint16_t>(number(2)); }
  uint32_t u24() { return static_cast<uint32_t>(number(3)); }
  uint32_t u32() { return static_cast<uint32_t>(number(4)); }
  int32_t i32() { return static_cast<int32_t>(u32()); }
  uint64_t u64() { return number(8); }
  void skip(size_t byteCount);
  size_t remaining() const { return bytes_.size() - at_; }
  ByteSpan rest() const { return bytes_.subspan(at_); }
  bool isExhausted() const { return exhausted_; }  ///< something was read that is not there

 private:
  ByteSpan bytes_;
  size_t at_ = 0;
  bool exhausted_ = false;
};

struct Box {
  uint32_t type = 0;
  ByteSpan body;
};

/// The boxes that lie one after the other in `bytes`; a box that claims more than is there ends with the bytes.
class BoxReader {
 public:
  explicit BoxReader(ByteSpan bytes) : bytes_(bytes) {}
  /// False at the end or where no box can begin.
  bool next(Box& box);
  /// The first box of that type; an empty one where there is none.
  static Box find(ByteSpan bytes, uint32_t type);

 private:
  ByteSpan bytes_;
};

}  // namespace vidloom
