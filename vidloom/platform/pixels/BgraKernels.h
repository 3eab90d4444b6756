// Rows of BGRA to rows of Y, Cb, Cr and back.
#pragma once

#include <cstdint>

#include "vidloom/platform/pixels/ColorTransform.h"

namespace vidloom {

/// Luma codes of `count` pixels.
void lumaOfBGRA(uint8_t* luma, const uint8_t* bgra, int count, const CodeScale& scale);

/// Chroma codes, Cb and Cr by turns, of the mean colours of 2 x 2 pixels; an odd last pixel of `count` stands for two.
void chromaOfBGRA(uint8_t* cbcr, const uint8_t* bgra, const uint8_t* below, int count, const CodeScale& scale);

/// The same of premultiplied pixels: the colours are divided by the mean alpha.
void chromaOfPremultipliedBGRA(uint8_t* cbcr, const uint8_t* bgra, const uint8_t* below, int count, const CodeScale& scale);

/// One row of planes.
struct PlaneRow {
  const uint8_t* luma;
  const uint8_t* cb;
  const uint8_t* cr;
  const uint8_t* alpha;  ///< null: 255
};

/// Pixels of a row; every chroma sample counts for two. Colours are multiplied by alpha if `premultiplies`.
void bgraOfPlanes(uint8_t* bgra, const PlaneRow& row, int count, const CodeScale& scale, bool premultiplies);

}  // namespace vidloom
