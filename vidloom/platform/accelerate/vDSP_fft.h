// The real Fourier transform in packed form.
#pragma once

#include <memory>

#include "vidloom/platform/accelerate/vDSP.h"

namespace vidloom {

using FFTRadix = int;
using FFTDirection = int;
inline constexpr FFTRadix kFFTRadix2 = 0;
inline constexpr FFTDirection kFFTDirection_Forward = 1;

class OpaqueFFTSetup;
/// Tables for all sizes up to the one that it was made for. A shared handle; immutable, any number of threads may transform with
/// it.
using FFTSetup = std::shared_ptr<const OpaqueFFTSetup>;

/// Null where log2n is above 24, the radix is not kFFTRadix2, or memory has run out.
FFTSetup vDSP_create_fftsetup(vDSP_Length log2n, FFTRadix radix);
/// Drops the handle: the tables go with the last one.
void vDSP_destroy_fftsetup(FFTSetup& setup);

/// The forward transform of N = 2^log2n real samples, in place. In: realp[i] = x[2i], imagp[i] = x[2i + 1], N/2 of each. Out: twice
/// the discrete Fourier transform, the sum of x[n] exp(-2 pi i k n / N): bins 1 to N/2 - 1 as complex numbers, in place 0 the
/// constant part in realp and that of half the sampling rate in imagp. `stride` steps over both arrays. Log2n is 1 or more and not
/// above the setup's; anything else, and another direction than forward, stops the program.
void vDSP_fft_zrip(const FFTSetup& setup, const DSPSplitComplex* c, vDSP_Stride stride, vDSP_Length log2n, FFTDirection direction);

/// The steps of a power spectrum at once, with the same results: multiplies 2^log2n samples by `window` (null: by nothing), splits
/// them into even and odd places, transforms with stride 1 and fills `powers` as vDSP_zvmags does. `spectrum` and `powers` have
/// 2^(log2n - 1) places each.
void packedSpectrumOfSamples(const FFTSetup& setup, const float* samples, const float* window, vDSP_Length log2n,
                             const DSPSplitComplex& spectrum, float* powers);

}  // namespace vidloom
