// Vector arithmetic in single precision. Lengths count elements, strides step over elements. No operation checks its arguments:
// arrays must hold what length and stride reach. Any thread; nothing is allocated.
#pragma once

#include <cstddef>
#include <cstdint>

namespace vidloom {

using vDSP_Length = size_t;
using vDSP_Stride = ptrdiff_t;

/// Complex numbers as two arrays, owned by the caller.
struct DSPSplitComplex {
  float* realp = nullptr;
  float* imagp = nullptr;
};

/// c[n] = a[n], exactly.
void vDSP_vflt16(const int16_t* a, vDSP_Stride strideA, float* c, vDSP_Stride strideC, vDSP_Length length);
/// c[n] = |a[n]|
void vDSP_vabs(const float* a, vDSP_Stride strideA, float* c, vDSP_Stride strideC, vDSP_Length length);
/// c[n] = a[n] b[n]
void vDSP_vmul(const float* a, vDSP_Stride strideA, const float* b, vDSP_Stride strideB, float* c, vDSP_Stride strideC,
               vDSP_Length length);
/// c[n] = alpha log10(a[n] / *zeroReference); alpha is 10 (power) for flag 0 and 20 (amplitude) for flag 1. Zero gives -infinity.
void vDSP_vdbcon(const float* a, vDSP_Stride strideA, const float* zeroReference, float* c, vDSP_Stride strideC, vDSP_Length length,
                 unsigned flag);
/// c[n] = a[n] limited to [*low, *high]
void vDSP_vclip(const float* a, vDSP_Stride strideA, const float* low, const float* high, float* c, vDSP_Stride strideC,
                vDSP_Length length);
/// c[n] = the sum over p < filterLength of a[n decimation + p] filter[p]. Reads decimation (length - 1) + filterLength elements.
void vDSP_desamp(const float* a, vDSP_Stride decimation, const float* filter, float* c, vDSP_Length length,
                 vDSP_Length filterLength);
/// *c = the mean of a; NaN for no element.
void vDSP_meanv(const float* a, vDSP_Stride strideA, float* c, vDSP_Length length);
/// c[n] = real[n]^2 + imaginary[n]^2
void vDSP_zvmags(const DSPSplitComplex* a, vDSP_Stride strideA, float* c, vDSP_Stride strideC, vDSP_Length length);

inline constexpr int vDSP_HALF_WINDOW = 1;
inline constexpr int vDSP_HANN_DENORM = 0;
inline constexpr int vDSP_HANN_NORM = 2;
/// c[n] = W (1 - cos(2 pi n / length)), periodic. W is 0.5, with vDSP_HANN_NORM sqrt(2/3), which makes the mean square 1. With
/// vDSP_HALF_WINDOW only the first (length + 1) / 2 elements are written.
void vDSP_hann_window(float* c, vDSP_Length length, int flag);
/// c[n] = 0.54 - 0.46 cos(2 pi n / length), periodic; vDSP_HALF_WINDOW as above.
void vDSP_hamm_window(float* c, vDSP_Length length, int flag);

}  // namespace vidloom
