#include "vidloom/platform/ffmpeg/PacketSpool.h"

#include <algorithm>

namespace vidloom {

int PacketSpool::append(std::span<const uint8_t> bytes) {
  if (memory_.size() + bytes.size() > memoryBytes_) {
    if (const int errnoValue = spill()) return errnoValue;
    if (bytes.size() > memoryBytes_) return file_->append(bytes);
  }
  // Doubling would overshoot the bound at the last step.
  if (memory_.capacity() < memory_.size() + bytes.size()) {
    memory_.reserve(std::min(memoryBytes_, std::max(2 * memory_.capacity(), memory_.size() + bytes.size())));
  }
  memory_.insert(memory_.end(), bytes.begin(), bytes.end());
  return 0;
}

int PacketSpool::spill() {
  int errnoValue = 0;
  if (!file_) file_ = ScratchFile::openUnnamed(folder_, errnoValue);
  if (!file_) return errnoValue;
  errnoValue = file_->append(memory_);
  if (errnoValue == 0) memory_.clear();
  return errnoValue;
}

int PacketSpool::read(uint64_t offset, std::span<uint8_t> bytes) const {
  const uint64_t inFile = fileBytes();
  if (offset < inFile) {
    const size_t fromFile = static_cast<size_t>(std::min<uint64_t>(bytes.size(), inFile - offset));
    if (const int errnoValue = file_->read(offset, bytes.first(fromFile))) return errnoValue;
    bytes = bytes.subspan(fromFile);
    offset += fromFile;
  }
  if (bytes.empty()) return 0;
  std::copy_n(memory_.begin() + static_cast<ptrdiff_t>(offset - inFile), bytes.size(), bytes.begin());
  return 0;
}

void PacketSpool::discardBefore(uint64_t offset) {
  constexpr uint64_t stepBytes = uint64_t{8} << 20;
  const uint64_t end = std::min(offset, fileBytes()) / stepBytes * stepBytes;
  if (end <= discarded_) return;
  file_->discard(discarded_, end - discarded_);
  discarded_ = end;
}

}  // namespace vidloom
