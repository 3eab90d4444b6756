#include "vidloom/platform/pixels/PlaneOrientation.h"

#include <algorithm>

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "vidloom/platform/pixels/PlaneOrientation.cpp"
#include "hwy/cache_control.h"
#include "hwy/foreach_target.h"
#include "hwy/highway.h"
#include "vidloom/platform/pixels/RowLoop-inl.h"

HWY_BEFORE_NAMESPACE();
namespace vidloom {
namespace HWY_NAMESPACE {

using BlockBytes = hn::FixedTag<uint8_t, 16>;
using BlockVector = hn::Vec<BlockBytes>;
// One or two 16 x 16 blocks side by side.
using StripBytes = hn::CappedTag<uint8_t, 32>;
using StripVector = hn::Vec<StripBytes>;
inline constexpr int kBlockSide = 16;
inline constexpr int kTileSide = 64;

template <class D>
HWY_INLINE void interleaveRows(D bytes, const hn::Vec<D>* rows, hn::Vec<D>* mixed) {
  for (int i = 0; i < kBlockSide / 2; ++i) {
    mixed[2 * i] = hn::InterleaveLower(bytes, rows[i], rows[i + 8]);
    mixed[2 * i + 1] = hn::InterleaveUpper(bytes, rows[i], rows[i + 8]);
  }
}

// Four rounds of interleaving row i with row i + 8 bring the columns of each block into rows.
template <class D>
HWY_INLINE void transposeBlocks(D bytes, const uint8_t* source, ptrdiff_t sourceStride, uint8_t* destination, ptrdiff_t stride) {
  hn::Vec<D> rows[kBlockSide], mixed[kBlockSide];
  for (int i = 0; i < kBlockSide; ++i) rows[i] = hn::LoadU(bytes, source + i * sourceStride);
  interleaveRows(bytes, rows, mixed);
  interleaveRows(bytes, mixed, rows);
  interleaveRows(bytes, rows, mixed);
  interleaveRows(bytes, mixed, rows);
  for (int i = 0; i < kBlockSide; ++i) {
    if constexpr (hn::MaxLanes(D()) == 2 * kBlockSide) {
      const BlockBytes half;
      hn::StoreU(hn::LowerHalf(half, rows[i]), half, destination + i * stride);
      hn::StoreU(hn::UpperHalf(half, rows[i]), half, destination + (i + kBlockSide) * stride);
    } else {
      hn::StoreU(rows[i], bytes, destination + i * stride);
    }
  }
}

template <class D>
HWY_INLINE void transposeStrip(D bytes, const uint8_t* source, ptrdiff_t sourceStride, int top, int height, uint8_t* destination,
                               ptrdiff_t stride) {
  for (int block = top; block < std::min(top + kTileSide, height); block += kBlockSide) {
    const int y = std::min(block, height - kBlockSide);
    transposeBlocks(bytes, source + y * sourceStride, sourceStride, destination + y, stride);
  }
}

// Blocks that would stick out at the end are moved back over their neighbours; sides are at least 16. Destination rows are
// completed a cache line at a time.
void TransposePlane(const uint8_t* source, ptrdiff_t sourceStride, int width, int height, uint8_t* destination, ptrdiff_t stride) {
  const int lanes = static_cast<int>(hn::Lanes(StripBytes()));
  for (int top = 0; top < height; top += kTileSide) {
    int x = 0;
    for (; x + lanes <= width; x += lanes) {
      // Neither side of a tile is a stream that the processor would foresee.
      for (int row = x + lanes; row < std::min(x + 2 * lanes, width); ++row) hwy::Prefetch(destination + row * stride + top);
      if (x % kTileSide == 0 && x + kTileSide < width) {
        for (int y = top; y < std::min(top + kTileSide, height); ++y) hwy::Prefetch(source + y * sourceStride + x + kTileSide);
      }
      transposeStrip(StripBytes(), source + x, sourceStride, top, height, destination + x * stride, stride);
    }
    for (; x < width; x += kBlockSide) {
      const int left = std::min(x, width - kBlockSide);
      transposeStrip(BlockBytes(), source + left, sourceStride, top, height, destination + left * stride, stride);
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
