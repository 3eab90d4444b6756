// Recipes that are nothing but layers.
#pragma once

#include <vector>

#include "vidloom/platform/coreimage/CIImage.h"
#include "vidloom/platform/pixels/LayerCompositor.h"
#include "vidloom/platform/pixels/SampleRect.h"

namespace vidloom {

/// The image within those samples of the grid as layers, from the bottom, over a picture of that size and colour. Nothing where the
/// recipe has a step that is no layer.
std::optional<std::vector<PictureLayer>> layersOf(const CIImageRef& image, const SampleRect& rect, const PictureColor& color);

}  // namespace vidloom
