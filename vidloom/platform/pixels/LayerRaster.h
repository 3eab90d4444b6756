// Layers that stay where they are, drawn ahead.
#pragma once

#include <optional>

#include "vidloom/platform/pixels/LayerCompositor.h"
#include "vidloom/platform/pixels/PlaneDrawing.h"

namespace vidloom {

/// The layer as it will look in an output of that size and colour: a picture, with alpha where it does not cover its bounds
/// entirely, that only has to be moved by whole samples. Its own opacity, edges and clip are in the picture's alpha. A layer
/// without a picture where nothing of it can be seen; nullopt where memory has run out.
std::optional<PictureLayer> rasterLayer(const PictureLayer& layer, int width, int height, const PictureColor& color,
                                        const DrawingMemory& memory);

}  // namespace vidloom
