#include "vidloom/platform/accelerate/vDSP.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numbers>

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "vidloom/platform/accelerate/vDSP.cpp"
#include "hwy/foreach_target.h"
#include "hwy/highway.h"

HWY_BEFORE_NAMESPACE();
namespace vidloom {
namespace HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

using Floats = hn::ScalableTag<float>;

/// Calls vectors(n) for the places n that whole vectors begin at, then one(n) for each place of the rest.
template <class Vectors, class One>
HWY_INLINE void forEachVector(size_t length, Vectors vectors, One one) {
  const size_t lanes = hn::Lanes(Floats());
  size_t n = 0;
  for (; n + lanes <= length; n += lanes) vectors(n);
  for (; n < length; ++n) one(n);
}

void Float16(const int16_t* a, float* c, size_t length) {
  const Floats floats;
  const hn::Rebind<int16_t, Floats> shorts;
  const hn::Rebind<int32_t, Floats> integers;
  forEachVector(
      length,
      [&](size_t n) { hn::StoreU(hn::ConvertTo(floats, hn::PromoteTo(integers, hn::LoadU(shorts, a + n))), floats, c + n); },
      [&](size_t n) { c[n] = a[n]; });
}

void Multiply(const float* a, const float* b, float* c, size_t length) {
  const Floats floats;
  forEachVector(
      length, [&](size_t n) { hn::StoreU(hn::Mul(hn::LoadU(floats, a + n), hn::LoadU(floats, b + n)), floats, c + n); },
      [&](size_t n) { c[n] = a[n] * b[n]; });
}

void Powers(const float* real, const float* imaginary, float* c, size_t length) {
  const Floats floats;
  forEachVector(
      length,
      [&](size_t n) {
        const auto re = hn::LoadU(floats, real + n), im = hn::LoadU(floats, imaginary + n);
        hn::StoreU(hn::MulAdd(re, re, hn::Mul(im, im)), floats, c + n);
      },
      [&](size_t n) { c[n] = real[n] * real[n] + imaginary[n] * imaginary[n]; });
}

float Sum(const float* a, size_t length) {
  const Floats floats;
  auto sum = hn::Zero(floats);
  float rest = 0;
  forEachVector(
      length, [&](size_t n) { sum = hn::Add(sum, hn::LoadU(floats, a + n)); }, [&](size_t n) { rest += a[n]; });
  return hn::GetLane(hn::SumOfLanes(floats, sum)) + rest;
}

void Decimate(const float* a, ptrdiff_t decimation, const float* filter, float* c, size_t length, size_t filterLength) {
  const Floats floats;
  for (size_t i = 0; i < length; ++i, a += decimation) {
    auto sum = hn::Zero(floats);
    float rest = 0;
    forEachVector(
        filterLength, [&](size_t p) { sum = hn::MulAdd(hn::LoadU(floats, a + p), hn::LoadU(floats, filter + p), sum); },
        [&](size_t p) { rest += a[p] * filter[p]; });
    c[i] = hn::GetLane(hn::SumOfLanes(floats, sum)) + rest;
  }
}

}  // namespace HWY_NAMESPACE
}  // namespace vidloom
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace vidloom {
namespace {

HWY_EXPORT(Float16);
HWY_EXPORT(Multiply);
HWY_EXPORT(Powers);
HWY_EXPORT(Sum);
HWY_EXPORT(Decimate);

/// c[n] = function(a[n])
template <class Value, class Function>
void mapElements(const Value* a, vDSP_Stride strideA, float* c, vDSP_Stride strideC, vDSP_Length length, Function function) {
  if (strideA == 1 && strideC == 1) {
    for (size_t n = 0; n < length; ++n) c[n] = function(a[n]);
    return;
  }
  for (auto n = static_cast<vDSP_Stride>(0); n < static_cast<vDSP_Stride>(length); ++n) c[n * strideC] = function(a[n * strideA]);
}

/// c[n] = center - swing cos(2 pi n / length), in double.
void cosineWindow(float* c, vDSP_Length length, int flag, double center, double swing) {
  const vDSP_Length count = flag & vDSP_HALF_WINDOW ? (length + 1) / 2 : length;
  const double step = 2 * std::numbers::pi / static_cast<double>(length);
  for (vDSP_Length n = 0; n < count; ++n) c[n] = static_cast<float>(center - swing * std::cos(step * static_cast<double>(n)));
}

}  // namespace

void vDSP_vflt16(const int16_t* a, vDSP_Stride strideA, float* c, vDSP_Stride strideC, vDSP_Length length) {
  if (strideA == 1 && strideC == 1) return HWY_DYNAMIC_DISPATCH(Float16)(a, c, length);
  mapElements(a, strideA, c, strideC, length, [](int16_t value) { return static_cast<float>(value); });
}

void vDSP_vabs(const float* a, vDSP_Stride strideA, float* c, vDSP_Stride strideC, vDSP_Length length) {
  mapElements(a, strideA, c, strideC, length, [](float value) { return std::fabs(value); });
}

void vDSP_vmul(const float* a, vDSP_Stride strideA, const float* b, vDSP_Stride strideB, float* c, vDSP_Stride strideC,
               vDSP_Length length) {
  if (strideA == 1 && strideB == 1 && strideC == 1) return HWY_DYNAMIC_DISPATCH(Multiply)(a, b, c, length);
  for (vDSP_Stride n = 0; n < static_cast<vDSP_Stride>(length); ++n) c[n * strideC] = a[n * strideA] * b[n * strideB];
}

void vDSP_vdbcon(const float* a, vDSP_Stride strideA, const float* zeroReference, float* c, vDSP_Stride strideC, vDSP_Length length,
                 unsigned flag) {
  const float reference = *zeroReference, factor = flag == 0 ? 10.0f : 20.0f;
  mapElements(a, strideA, c, strideC, length, [=](float value) { return factor * std::log10(value / reference); });
}

void vDSP_vclip(const float* a, vDSP_Stride strideA, const float* low, const float* high, float* c, vDSP_Stride strideC,
                vDSP_Length length) {
  const float lowest = *low, highest = *high;
  mapElements(a, strideA, c, strideC, length, [=](float value) { return std::min(std::max(value, lowest), highest); });
}

void vDSP_desamp(const float* a, vDSP_Stride decimation, const float* filter, float* c, vDSP_Length length,
                 vDSP_Length filterLength) {
  HWY_DYNAMIC_DISPATCH(Decimate)(a, decimation, filter, c, length, filterLength);
}

void vDSP_meanv(const float* a, vDSP_Stride strideA, float* c, vDSP_Length length) {
  float sum = 0;
  if (strideA == 1) {
    sum = HWY_DYNAMIC_DISPATCH(Sum)(a, length);
  } else {
    for (vDSP_Stride n = 0; n < static_cast<vDSP_Stride>(length); ++n) sum += a[n * strideA];
  }
  *c = length == 0 ? std::numeric_limits<float>::quiet_NaN() : sum / static_cast<float>(length);
}

void vDSP_zvmags(const DSPSplitComplex* a, vDSP_Stride strideA, float* c, vDSP_Stride strideC, vDSP_Length length) {
  if (strideA == 1 && strideC == 1) return HWY_DYNAMIC_DISPATCH(Powers)(a->realp, a->imagp, c, length);
  for (vDSP_Stride n = 0; n < static_cast<vDSP_Stride>(length); ++n) {
    const float real = a->realp[n * strideA], imaginary = a->imagp[n * strideA];
    c[n * strideC] = real * real + imaginary * imaginary;
  }
}

void vDSP_hann_window(float* c, vDSP_Length length, int flag) {
  const double level = flag & vDSP_HANN_NORM ? std::sqrt(2.0 / 3) : 0.5;
  cosineWindow(c, length, flag, level, level);
}

void vDSP_hamm_window(float* c, vDSP_Length length, int flag) { cosineWindow(c, length, flag, 0.54, 0.46); }

}  // namespace vidloom
#endif
