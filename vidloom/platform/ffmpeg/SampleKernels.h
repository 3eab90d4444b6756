// The inner loops that bring sound to 16 bits.
#pragma once

#include <cstdint>

namespace vidloom {

/// Full scale of 16 bits is 32768; rounded to nearest (ties to even), saturated, NaN is silence.
void floatsTo16(const float* samples, int64_t count, int16_t* out);
/// The same for two channels of `count` samples, one after the other in the output.
void floatPairTo16(const float* left, const float* right, int64_t count, int16_t* interleaved);

}  // namespace vidloom
