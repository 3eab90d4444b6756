// Pictures from and to the layouts that hosts see: bi-planar and BGRA; and from one matrix and range to another.
#pragma once

#include <cstddef>
#include <cstdint>

#include "vidloom/platform/pixels/Picture.h"

namespace vidloom {

/// The two planes of a bi-planar picture: luma, and below it Cb and Cr by turns, Cb first, ceil(width/2) pairs a row.
struct BiplanarPlanes {
  uint8_t* y = nullptr;
  ptrdiff_t yStride = 0;
  uint8_t* cbcr = nullptr;
  ptrdiff_t cbcrStride = 0;
};

/// What the fourth byte of BGRA means. `ignored` reads as opaque and writes 255.
enum class AlphaMode : uint8_t { ignored, straight, premultiplied };

/// Writes the picture bi-planar in that matrix and range. Limited to full range and back gives the same codes within 16..235
/// (luma) and 16..240 (chroma). Alpha is left out.
void writeBiplanar(const Picture& picture, ColorMatrix matrix, bool fullRange, const BiplanarPlanes& destination);

/// Reads bi-planar pixels in that matrix and range, of the destination's size, into the destination's own. An alpha plane of the
/// destination becomes opaque.
void readBiplanar(const BiplanarPlanes& source, ColorMatrix matrix, bool fullRange, MutablePicture& destination);

/// Writes the picture as bytes B, G, R, A.
void writeBGRA(const Picture& picture, AlphaMode alpha, uint8_t* bgra, ptrdiff_t stride);

/// Reads bytes B, G, R, A of the destination's size into the destination's matrix and range. Alpha goes to the destination's alpha
/// plane; where it has none the pixels are taken as over black. Chroma is the mean over its four pixels, weighted by their alpha.
void readBGRA(const uint8_t* bgra, ptrdiff_t stride, AlphaMode alpha, MutablePicture& destination);

/// Reads bytes B, G, R, A straight into bi-planar pixels of that matrix and range, ignoring alpha.
void convertBGRAToBiplanar(const uint8_t* bgra, ptrdiff_t stride, int width, int height, ColorMatrix matrix, bool fullRange,
                           const BiplanarPlanes& destination);

/// Writes bi-planar pixels of that matrix and range as opaque bytes B, G, R, A.
void convertBiplanarToBGRA(const BiplanarPlanes& source, int width, int height, ColorMatrix matrix, bool fullRange, uint8_t* bgra,
                           ptrdiff_t stride);

/// Whether every pixel's alpha is 255.
bool isOpaqueBGRA(const uint8_t* bgra, ptrdiff_t stride, int width, int height);

/// The picture in the destination's matrix and range; sizes are equal. Alpha is copied where both have it.
void convertColor(const Picture& picture, MutablePicture& destination);

}  // namespace vidloom
