// Makes pictures to write into and takes their memory back when nobody holds them any more.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "vidloom/platform/pixels/Picture.h"

namespace vidloom {

/// A pool of plane memory. Blocks come back when the last reference to a picture drops, also after the pool itself is gone; the
/// pool keeps a bounded number of free ones. Safe to use from any thread.
class PicturePool {
 public:
  /// Keeps at most maximumFreeBlocks blocks that no picture uses.
  explicit PicturePool(size_t maximumFreeBlocks = 8);

  /// A picture whose planes hold arbitrary bytes. Rows start at addresses that are multiples of 64 and end with some bytes that
  /// may be read and written. Null where the size is not positive or larger than 32768 on a side, or memory has run out.
  std::shared_ptr<MutablePicture> make(int width, int height, const PictureColor& color, bool alpha);

  /// Working memory of at least that many bytes, at an address that is a multiple of 64. Null where memory has run out.
  std::shared_ptr<uint8_t> makeBytes(size_t byteCount);

  /// The pool that everybody shares who has no reason for one of their own.
  static PicturePool& shared();

 private:
  class Blocks;
  std::shared_ptr<Blocks> blocks_;
};

}  // namespace vidloom
