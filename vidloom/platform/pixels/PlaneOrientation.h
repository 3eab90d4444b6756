// Quarter turns and mirrors of planes.
#pragma once

#include "vidloom/platform/pixels/PlaneView.h"

namespace vidloom {

/// One of the eight ways to lay a rectangle on the pixel grid: first rows and columns change places (if `transpose`), then the
/// result is mirrored left to right (`flipX`) and top to bottom (`flipY`).
struct Orientation {
  bool transpose = false;
  bool flipX = false;
  bool flipY = false;

  bool isUpright() const { return !transpose && !flipX && !flipY; }
  friend bool operator==(const Orientation&, const Orientation&) = default;
};

/// Writes the source in that orientation; the destination has the source's size, sides exchanged if it transposes.
void orientPlane(const PlaneView& source, const Orientation& orientation, const MutablePlaneView& destination);

}  // namespace vidloom
