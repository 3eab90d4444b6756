// Samples a plane through an affine map.
#pragma once

#include <cstdint>
#include <memory>

#include "vidloom/platform/coregraphics/CGGeometry.h"
#include "vidloom/platform/pixels/AffineKernels.h"
#include "vidloom/platform/pixels/PicturePool.h"
#include "vidloom/platform/pixels/PlaneView.h"
#include "vidloom/platform/pixels/SampleRect.h"

namespace vidloom {

/// Bilinear; beyond the source's edges its edge samples go on. Keeps a copy of the part of the source that is needed.
class AffineSampler {
 public:
  /// Rows are best asked for in pieces of this length, one below the other.
  static constexpr int kTileWidth = 128;

  /// `map` takes continuous source to destination coordinates and has an inverse. Only samples within `destination` may be asked
  /// for. isValid() is false where memory has run out.
  AffineSampler(const PlaneView& source, const CGAffineTransform& map, const SampleRect& destination, PicturePool& pool);

  bool isValid() const { return pairs_ != nullptr; }
  /// Writes the samples x0..x1 - 1 of a row.
  void row(int y, int x0, int x1, uint8_t* destination) const;

 private:
  CGAffineTransform inverse_;
  int runLength_ = 1;
  PairedPlane plane_;
  std::shared_ptr<uint8_t> pairs_;
};

}  // namespace vidloom
