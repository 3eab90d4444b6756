#include "vidloom/platform/corevideo/CVPixelMemory.h"

#include <cstdlib>

namespace vidloom {

namespace {

constexpr size_t kAlignment = 64;

}  // namespace

CVPixelMemory::Block CVPixelMemory::allocate(size_t byteCount) {
  // The system hands out large blocks as zeros already, so clearing them costs nothing.
  const std::shared_ptr<void> memory(std::calloc(byteCount + kAlignment, 1), std::free);
  if (!memory) return nullptr;
  void* aligned = memory.get();
  size_t space = byteCount + kAlignment;
  std::align(kAlignment, byteCount, aligned, space);
  return Block(memory, static_cast<uint8_t*>(aligned));
}

CVPixelMemory::Block CVPixelMemory::take() {
  Block block;
  {
    const std::lock_guard lock(mutex_);
    if (!free_.empty()) {
      block = std::move(free_.back());
      free_.pop_back();
    }
  }
  if (!block) block = allocate(byteCount_);
  if (!block) return nullptr;
  uint8_t* const address = block.get();
  return Block(address, [weakSelf = weak_from_this(), block = std::move(block)](uint8_t*) mutable {
    if (const auto self = weakSelf.lock()) self->giveBack(std::move(block));
  });
}

void CVPixelMemory::giveBack(Block block) {
  const std::lock_guard lock(mutex_);
  if (free_.size() < maximumFree_) free_.push_back(std::move(block));
}

void CVPixelMemory::flush() {
  std::vector<Block> dropped;
  const std::lock_guard lock(mutex_);
  dropped.swap(free_);
}

}  // namespace vidloom
