// Pictures with alpha through any map, exactly rather than fast.
#pragma once

#include <memory>

#include "vidloom/platform/pixels/LayerPlacement.h"
#include "vidloom/platform/pixels/PicturePool.h"

namespace vidloom {

/// The samples of the output within `bounds`, whose corners are even, that the placed picture leaves: a picture with alpha, in the
/// source's colours, with the placement's opacity, edges and clip in its alpha. Colours are weighted by alpha and worked out in
/// floating point: where all that a sample is made of has one colour, it has that colour exactly, whatever its alpha. Null where
/// memory has run out.
std::shared_ptr<MutablePicture> rasterAlpha(const Picture& picture, const LayerPlacement& placement, const SampleRect& bounds,
                                            PicturePool& pool);

}  // namespace vidloom
