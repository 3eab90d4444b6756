// Halves planes.
#pragma once

#include "vidloom/platform/pixels/PlaneView.h"

namespace vidloom {

/// Writes the means of two samples across, of two down or of both. The destination's halved sides are those of the source, halved
/// and rounded up; a last sample without a partner stands for both.
void halvePlane(const PlaneView& source, bool across, bool down, const MutablePlaneView& destination);

}  // namespace vidloom
