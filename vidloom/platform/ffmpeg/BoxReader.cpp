#include "vidloom/platform/ffmpeg/BoxReader.h"

#include <algorithm>

namespace vidloom {

uint64_t ByteReader::number(size_t byteCount) {
  if (remaining() < byteCount) {
    exhausted_ = true;
    at_ = bytes_.size();
    return 0;
  }
  uint64_t value = 0;
  for (size_t i = 0; i < byteCount; ++i) value = value << 8 | bytes_[at_++];
  return value;
}

void ByteReader::skip(size_t byteCount) {
  exhausted_ = exhausted_ || byteCount > remaining();
  at_ += std::min(byteCount, remaining());
}

bool BoxReader::next(Box& box) {
  ByteReader header(bytes_);
  uint64_t size = header.u32();
  box.type = header.u32();
  size_t headerBytes = 8;
  if (size == 1) {
    size = header.u64();
    headerBytes = 16;
  }
  if (header.isExhausted()) return false;
  if (size == 0) size = bytes_.size();
  if (size < headerBytes) return false;
  const size_t end = static_cast<size_t>(std::min<uint64_t>(size, bytes_.size()));
  box.body = bytes_.subspan(headerBytes, end - headerBytes);
  bytes_ = bytes_.subspan(end);
  return true;
}

Box BoxReader::find(ByteSpan bytes, uint32_t type) {
  BoxReader reader(bytes);
  for (Box box; reader.next(box);) {
    if (box.type == type) return box;
  }
  return {};
}

}  // namespace vidloom
