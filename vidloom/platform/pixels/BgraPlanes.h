// Pixels of four bytes from and to one plane a channel.
#pragma once

#include <array>

#include "vidloom/platform/pixels/PixelConversion.h"
#include "vidloom/platform/pixels/PlaneView.h"

namespace vidloom {

/// In the order B, G, R, alpha.
inline constexpr int kBgraPlaneCount = 4;
using BgraPlaneViews = std::array<PlaneView, kBgraPlaneCount>;
using MutableBgraPlaneViews = std::array<MutablePlaneView, kBgraPlaneCount>;

/// Reads bytes B, G, R, A of the planes' size into planes that are multiplied by alpha.
void splitBGRA(const uint8_t* bgra, ptrdiff_t stride, AlphaMode alpha, const MutableBgraPlaneViews& planes);
/// Writes planes as they are as bytes B, G, R, A.
void mergeBGRA(const BgraPlaneViews& planes, uint8_t* bgra, ptrdiff_t stride);

/// Between colours that are multiplied by alpha and colours that are not, in place. Colours of no alpha become 0.
void premultiplyPlanes(const MutableBgraPlaneViews& planes);
void unpremultiplyPlanes(const MutableBgraPlaneViews& planes);

}  // namespace vidloom
