// Draws layers over one another into one picture.
#pragma once

#include <memory>
#include <optional>
#include <vector>

#include "vidloom/platform/coregraphics/CGGeometry.h"
#include "vidloom/platform/pixels/Picture.h"

namespace vidloom {

class PicturePool;

/// A picture and where it goes. `displaySize` is the picture's size with its pixel aspect applied; `transform` maps coordinates of
/// that size (origin at the top left, y down) to pixels of the output. `opacity` is 0..1 and multiplies the picture's own alpha.
/// Of a picture with a `clip`, in the same coordinates, only that rectangle is shown; it is not empty.
struct PictureLayer {
  PictureRef picture;
  CGSize displaySize;
  CGAffineTransform transform = CGAffineTransformIdentity;
  double opacity = 1;
  std::optional<CGRect> clip = std::nullopt;
};

/// Composes layers over black. The result depends on nothing but the layers, the size and the colour. Safe to use from any
/// thread; concurrent calls run side by side.
class LayerCompositor {
 public:
  LayerCompositor();
  /// Takes the pictures that it draws from `pool`, which must outlive it.
  explicit LayerCompositor(PicturePool& pool);
  ~LayerCompositor();
  LayerCompositor(const LayerCompositor&) = delete;
  LayerCompositor& operator=(const LayerCompositor&) = delete;

  /// The layers, the first one at the bottom, cut at the output's edges, in the output's matrix and range.
  /// A single opaque layer that fills the output as it is comes back itself (or, where only the colour tags differ, as a picture
  /// that shares its planes); no visible layer gives a black picture that is made once; the same layers as in the call before
  /// give that call's picture. Layers without a picture, with opacity 0 or that a transform makes vanish are not drawn.
  /// Null where the output's size is not positive or larger than 32768 on a side, or memory has run out.
  PictureRef compose(const std::vector<PictureLayer>& bottomToTop, int width, int height, const PictureColor& outputColor);

 private:
  class Memory;
  PicturePool& pool_;
  std::unique_ptr<Memory> memory_;
};

}  // namespace vidloom
