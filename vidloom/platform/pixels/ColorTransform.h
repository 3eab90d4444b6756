// The arithmetic of matrices and ranges.
#pragma once

#include "vidloom/platform/pixels/Picture.h"

namespace vidloom {

/// What a matrix and a range make of R, G, B in 0..1: luma = lumaOffset + lumaScale * Y', Cb = 128 + chromaScale * (B - Y') / (2 (1
/// - kb)), Cr likewise, with Y' = kr R + (1 - kr - kb) G + kb B.
struct CodeScale {
  double kr, kb;
  double lumaOffset, lumaScale, chromaScale;

  static CodeScale of(ColorMatrix matrix, bool fullRange);
};

/// From one matrix and range to another: luma = lumaGain * (luma - lumaFrom) + lumaTo + lumaFromCb * cb + lumaFromCr * cr, and the
/// new cb and cr from the old ones, all chroma less 128.
struct ColorTransform {
  double lumaGain, lumaFrom, lumaTo, lumaFromCb, lumaFromCr;
  double cbFromCb, cbFromCr, crFromCb, crFromCr;

  static ColorTransform between(const PictureColor& from, const PictureColor& to);
};

}  // namespace vidloom
