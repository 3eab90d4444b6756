#include "vidloom/platform/pixels/PlaneOrientation.h"

#include <algorithm>

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "vidloom/platform/pixels/PlaneOrientation.cpp"
#include "hwy/foreach_target.h"
#include "hwy/highway.h"
#include "vidloom/platform/pixels/RowLoop-inl.h"

HWY_BEFORE_NAMESPACE();
namespace vidloom {
namespace HWY_NAMESPACE {

using BlockBytes = hn::FixedTag<uint8_t, 16>;
using BlockVector = hn::Vec<BlockBytes>;
inline constexpr int kBlockSide = 16;
inline constexpr int kTileSide = 64;

// Four rounds of interleaving row i with row i + 8 bring the columns of a 16 x 16 block into rows.
HWY_INLINE void transposeBlock(const uint8_t* source, ptrdiff_t sourceStride, uint8_t* destination, ptrdiff_t stride) {
  const BlockBytes bytes;
  BlockVector rows[kBlockSide], next[kBlockSide];
  for (int i = 0; i < kBlockSide; ++i) rows[i] = hn::LoadU(bytes, source + i * sourceStride);
  for (int round = 0; round < 2; ++round) {
    for (int i = 0; i < kBlockSide / 2; ++i) {
      next[2 * i] = hn::InterleaveLower(bytes, rows[i], rows[i + 8]);
      next[2 * i + 1] = hn::InterleaveUpper(bytes, rows[i], rows[i + 8]);
    }
    for (int i = 0; i < kBlockSide / 2; ++i) {
      rows[2 * i] = hn::InterleaveLower(bytes, next[i], next[i + 8]);
      rows[2 * i + 1] = hn::InterleaveUpper(bytes, next[i], next[i + 8]);
    }
  }
  for (int i = 0; i < kBlockSide; ++i) hn::StoreU(rows[i], bytes, destination + i * stride);
}

// Blocks that would stick out at the end are moved back over their neighbours; sides are at least 16. Destination rows are
// completed a cache line at a time.
void TransposePlane(const uint8_t* source, ptrdiff_t sourceStride, int width, int height, uint8_t* destination, ptrdiff_t stride) {
  for (int top = 0; top < height; top += kTileSide) {
    for (int left = 0; left < width; left += kBlockSide) {
      const int x = std::min(left, width - kBlockSide);
      for (int block = top; block < std::min(top + kTileSide, height); block += kBlockSide) {
        const int y = std::min(block, height - kBlockSide);
        transposeBlock(source + y * sourceStride + x, sourceStride, destination + x * stride + y, stride);
      }
    }
  }
}

void MirrorRow(const uint8_t* source, uint8_t* destination, int width) {
  const BlockBytes bytes;
  const BlockVector backwards = hn::Sub(hn::Set(bytes, kBlockSide - 1), hn::Iota(bytes, 0));
  int x = 0;
  for (; x + kBlockSide <= width; x += kBlockSide) {
    const BlockVector block = hn::LoadU(bytes, source + width - kBlockSide - x);
    hn::StoreU(hn::TableLookupBytes(block, backwards), bytes, destination + x);
  }
  for (; x < width; ++x) destination[x] = source[width - 1 - x];
}

}  // namespace HWY_NAMESPACE
}  // namespace vidloom
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace vidloom {
namespace {

HWY_EXPORT(TransposePlane);
HWY_EXPORT(MirrorRow);

constexpr int kSmallestTransposedSide = 16;

PlaneView upsideDown(const PlaneView& plane) {
  return {plane.data + (plane.height - 1) * plane.stride, -plane.stride, plane.width, plane.height};
}

void transpose(const PlaneView& source, const MutablePlaneView& destination) {
  if (std::min(source.width, source.height) >= kSmallestTransposedSide) {
    HWY_DYNAMIC_DISPATCH(TransposePlane)
    (source.data, source.stride, source.width, source.height, destination.data, destination.stride);
    return;
  }
  for (int y = 0; y < source.height; ++y) {
    for (int x = 0; x < source.width; ++x) destination.row(x)[y] = source.row(y)[x];
  }
}

}  // namespace

void orientPlane(const PlaneView& source, const Orientation& orientation, const MutablePlaneView& destination) {
  // A mirrored axis is an axis walked backwards: of the source before it transposes, else of the destination.
  const PlaneView from = (orientation.transpose ? orientation.flipX : orientation.flipY) ? upsideDown(source) : source;
  if (orientation.transpose) {
    const MutablePlaneView to = orientation.flipY ? MutablePlaneView{destination.row(destination.height - 1), -destination.stride,
                                                                     destination.width, destination.height}
                                                  : destination;
    return transpose(from, to);
  }
  for (int y = 0; y < from.height; ++y) {
    if (orientation.flipX) {
      HWY_DYNAMIC_DISPATCH(MirrorRow)(from.row(y), destination.row(y), from.width);
    } else {
      std::memcpy(destination.row(y), from.row(y), static_cast<size_t>(from.width));
    }
  }
}

}  // namespace vidloom
#endif
