#include "vidloom/platform/pixels/PicturePool.h"

#include <deque>
#include <mutex>
#include <new>
#include <utility>

namespace vidloom {
namespace {

constexpr int kMaximumSide = 32768;
constexpr size_t kAlignment = 64;
constexpr size_t kOverreadBytes = 64;

/// A multiple of the alignment, but not of 1024: columns of such a plane would fall on few cache sets.
ptrdiff_t strideFor(int width) {
  const size_t padded = (static_cast<size_t>(width) + kOverreadBytes / 2 + kAlignment - 1) / kAlignment * kAlignment;
  return static_cast<ptrdiff_t>(padded % 1024 == 0 ? padded + kAlignment : padded);
}

struct Block {
  std::unique_ptr<uint8_t, void (*)(uint8_t*)> bytes{nullptr, nullptr};
  size_t size = 0;
};

Block allocateBlock(size_t size) {
  auto* bytes = static_cast<uint8_t*>(::operator new (size, std::align_val_t{kAlignment}, std::nothrow));
  return {{bytes, [](uint8_t* address) { ::operator delete (address, std::align_val_t{kAlignment}); }}, bytes ? size : 0};
}

}  // namespace

class PicturePool::Blocks {
 public:
  explicit Blocks(size_t maximum) : maximum_(maximum) {}

  Block take(size_t size) {
    {
      std::lock_guard lock(mutex_);
      for (auto block = free_.rbegin(); block != free_.rend(); ++block) {
        if (block->size < size || block->size / 2 > size) continue;
        Block found = std::move(*block);
        free_.erase(std::next(block).base());
        return found;
      }
    }
    return allocateBlock(size);
  }

  void giveBack(Block block) {
    Block oldest;
    std::lock_guard lock(mutex_);
    free_.push_back(std::move(block));
    if (free_.size() > maximum_) {
      oldest = std::move(free_.front());
      free_.pop_front();
    }
  }

 private:
  const size_t maximum_;
  std::mutex mutex_;
  std::deque<Block> free_;
};

PicturePool::PicturePool(size_t maximumFreeBlocks) : blocks_(std::make_shared<Blocks>(maximumFreeBlocks)) {}

std::shared_ptr<uint8_t> PicturePool::makeBytes(size_t byteCount) {
  auto block = std::make_shared<Block>(blocks_->take(byteCount + kOverreadBytes));
  if (!block->bytes) return nullptr;
  uint8_t* bytes = block->bytes.get();
  return {bytes, [block, blocks = blocks_](uint8_t*) { blocks->giveBack(std::move(*block)); }};
}

std::shared_ptr<MutablePicture> PicturePool::make(int width, int height, const PictureColor& color, bool alpha) {
  if (width <= 0 || height <= 0 || width > kMaximumSide || height > kMaximumSide) return nullptr;
  auto picture = std::make_shared<MutablePicture>();
  picture->width = width;
  picture->height = height;
  picture->color = color;
  const ptrdiff_t lumaStride = strideFor(width);
  const ptrdiff_t chromaStride = strideFor(picture->chromaWidth());
  const size_t lumaSize = static_cast<size_t>(lumaStride) * height;
  const size_t chromaSize = static_cast<size_t>(chromaStride) * picture->chromaHeight();
  const auto bytes = makeBytes(lumaSize * (alpha ? 2 : 1) + 2 * chromaSize);
  if (!bytes) return nullptr;
  picture->y = {bytes.get(), lumaStride};
  picture->cb = {bytes.get() + lumaSize, chromaStride};
  picture->cr = {bytes.get() + lumaSize + chromaSize, chromaStride};
  if (alpha) picture->alpha = {bytes.get() + lumaSize + 2 * chromaSize, lumaStride};
  picture->owner = bytes;
  return picture;
}

PicturePool& PicturePool::shared() {
  static PicturePool pool;
  return pool;
}

}  // namespace vidloom
