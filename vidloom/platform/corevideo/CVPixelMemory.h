// The memory of pixel buffers.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

namespace vidloom {

/// Hands out blocks of one size and takes them back when nobody holds them any more. Thread-safe; blocks may outlive it.
class CVPixelMemory : public std::enable_shared_from_this<CVPixelMemory> {
 public:
  using Block = std::shared_ptr<uint8_t>;

  CVPixelMemory(size_t byteCount, size_t maximumFreeBlocks) : byteCount_(byteCount), maximumFree_(maximumFreeBlocks) {}

  /// A block of zeros at an address that is a multiple of 64; null where memory has run out.
  static Block allocate(size_t byteCount);

  /// A block that came back, with what it held, else a new one of zeros; null where memory has run out.
  Block take();
  /// Gives back to the system what nobody uses.
  void flush();

 private:
  void giveBack(Block block);

  const size_t byteCount_;
  const size_t maximumFree_;
  std::mutex mutex_;
  std::vector<Block> free_;
};

}  // namespace vidloom
