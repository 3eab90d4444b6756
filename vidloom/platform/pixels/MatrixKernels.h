// Rows of Y, Cb, Cr from one matrix to another.
#pragma once

#include <cstdint>

#include "vidloom/platform/pixels/ColorTransform.h"

namespace vidloom {

/// The new chroma rows, and for every sample the change of luma that goes with it, in 1/32 codes.
void transformChromaRow(uint8_t* newCb, uint8_t* newCr, int16_t* lumaChange, const uint8_t* cb, const uint8_t* cr, int count,
                        const ColorTransform& transform);

/// A new luma row. `near` and `far` are the luma changes of the chroma row that the luma row lies in and of the one next to it;
/// each must be readable from one before its first sample to a vector behind its last one.
void transformLumaRow(uint8_t* newLuma, const uint8_t* luma, const int16_t* near, const int16_t* far, int count,
                      const ColorTransform& transform);

/// How many samples after the last one transformLumaRow may read.
inline constexpr int kLumaChangePadding = 64;

}  // namespace vidloom
