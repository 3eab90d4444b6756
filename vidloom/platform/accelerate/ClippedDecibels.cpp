#include "vidloom/platform/accelerate/ClippedDecibels.h"

#include <algorithm>
#include <array>
#include <cmath>

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "vidloom/platform/accelerate/ClippedDecibels.cpp"
#include "hwy/foreach_target.h"
#include "hwy/highway.h"

HWY_BEFORE_NAMESPACE();
namespace vidloom {
namespace HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

// At most 16 lanes: the length of the buffer for the last samples.
using Floats = hn::CappedTag<float, 16>;
using FloatVector = hn::Vec<Floats>;
using Integers = hn::Rebind<int32_t, Floats>;
using IntegerVector = hn::Vec<Integers>;

constexpr size_t kMaxLanes = 16;
/// A product of that many amplitudes stays within the range of floats: none is above 32768, and the lowest not below 0.0001.
constexpr size_t kFactors = 8;

/// Amplitudes between `lowest` and `highest`.
struct Amplitudes {
  FloatVector lowest, highest;

  HWY_INLINE FloatVector of(const int16_t* samples) const {
    const hn::Rebind<int16_t, Floats> shorts;
    const auto whole = hn::PromoteTo(Integers(), hn::LoadU(shorts, samples));
    return hn::Max(lowest, hn::Min(hn::Abs(hn::ConvertTo(Floats(), whole)), highest));
  }
};

/// A positive number as 2^exponent times a mantissa from sqrt(1/2) to sqrt(2).
HWY_INLINE IntegerVector exponentOf(FloatVector x, FloatVector& mantissa) {
  const Floats floats;
  const Integers integers;
  const auto rootOfHalf = hn::Set(integers, 0x3f3504f3);
  const auto bits = hn::BitCast(integers, x);
  const auto exponent = hn::ShiftRight<23>(hn::Sub(bits, rootOfHalf));
  mantissa = hn::BitCast(floats, hn::Sub(bits, hn::ShiftLeft<23>(exponent)));
  return exponent;
}

/// log2 of a mantissa by a polynomial through the zeros of a Chebyshev polynomial, off by less than 1e-7.
HWY_INLINE FloatVector log2OfMantissa(FloatVector mantissa) {
  const Floats floats;
  const FloatVector x = hn::Sub(mantissa, hn::Set(floats, 1.0f));
  FloatVector sum = hn::Set(floats, -0.146203534f);
  for (const float coefficient :
       {0.234209851f, -0.248821806f, 0.287075611f, -0.360241986f, 0.480924039f, -0.721352759f, 1.44269496f}) {
    sum = hn::MulAdd(sum, x, hn::Set(floats, coefficient));
  }
  return hn::Mul(sum, x);
}

/// Sums of logarithms: the exponents exactly, the mantissas as floats, which stay small.
struct LogarithmSum {
  IntegerVector exponents;
  FloatVector mantissas;

  HWY_INLINE void add(FloatVector product) {
    FloatVector mantissa;
    exponents = hn::Add(exponents, exponentOf(product, mantissa));
    mantissas = hn::Add(mantissas, log2OfMantissa(mantissa));
  }
  double total() const {
    const double whole = hn::GetLane(hn::SumOfLanes(Integers(), exponents));
    return whole + static_cast<double>(hn::GetLane(hn::SumOfLanes(Floats(), mantissas)));
  }
};

/// The sum of log2 of the samples' amplitudes. At most kSamplesAtOnce: what the floats lack grows with the number of sums.
double SumOfLog2(float lowest, float highest, const int16_t* samples, size_t count) {
  const Floats floats;
  const size_t lanes = hn::Lanes(floats);
  const Amplitudes amplitudes{hn::Set(floats, lowest), hn::Set(floats, highest)};
  LogarithmSum sum{hn::Zero(Integers()), hn::Zero(floats)};
  size_t at = 0;
  for (; at + kFactors * lanes <= count; at += kFactors * lanes) {
    const int16_t* const from = samples + at;
    const FloatVector low = hn::Mul(hn::Mul(amplitudes.of(from), amplitudes.of(from + lanes)),
                                    hn::Mul(amplitudes.of(from + 2 * lanes), amplitudes.of(from + 3 * lanes)));
    const FloatVector high = hn::Mul(hn::Mul(amplitudes.of(from + 4 * lanes), amplitudes.of(from + 5 * lanes)),
                                     hn::Mul(amplitudes.of(from + 6 * lanes), amplitudes.of(from + 7 * lanes)));
    sum.add(hn::Mul(low, high));
  }
  FloatVector product = hn::Set(floats, 1.0f);
  for (; at + lanes <= count; at += lanes) product = hn::Mul(product, amplitudes.of(samples + at));
  if (at < count) {
    std::array<int16_t, kMaxLanes> rest{};
    std::copy(samples + at, samples + count, rest.begin());
    const auto isSample = hn::FirstN(floats, count - at);
    product = hn::Mul(product, hn::IfThenElse(isSample, amplitudes.of(rest.data()), hn::Set(floats, 1.0f)));
  }
  sum.add(product);
  return sum.total();
}

void Log2OfEach(float lowest, float highest, const int16_t* samples, size_t count, float* c) {
  const Floats floats;
  const size_t lanes = hn::Lanes(floats);
  const Amplitudes amplitudes{hn::Set(floats, lowest), hn::Set(floats, highest)};
  const auto logarithms = [&](const int16_t* from) HWY_ATTR {
    FloatVector mantissa;
    const IntegerVector exponents = exponentOf(amplitudes.of(from), mantissa);
    return hn::Add(hn::ConvertTo(floats, exponents), log2OfMantissa(mantissa));
  };
  size_t at = 0;
  for (; at + lanes <= count; at += lanes) hn::StoreU(logarithms(samples + at), floats, c + at);
  if (at == count) return;
  std::array<int16_t, kMaxLanes> rest{};
  std::array<float, kMaxLanes> results{};
  std::copy(samples + at, samples + count, rest.begin());
  hn::StoreU(logarithms(rest.data()), floats, results.data());
  std::copy_n(results.begin(), count - at, c + at);
}

}  // namespace HWY_NAMESPACE
}  // namespace vidloom
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace vidloom {

HWY_EXPORT(SumOfLog2);
HWY_EXPORT(Log2OfEach);

namespace {

constexpr double kDecibelsPerDoubling = 6.0205999132796239;  // 20 log10(2)
constexpr size_t kSamplesAtOnce = size_t{1} << 16;

float amplitudeAt(float decibels, float zeroReference) {
  return static_cast<float>(zeroReference * std::pow(10.0, static_cast<double>(decibels) / 20));
}

}  // namespace

ClippedDecibels::ClippedDecibels(float zeroReference, float low, float high)
    : low_(low),
      high_(high),
      lowest_(amplitudeAt(low, zeroReference)),
      highest_(amplitudeAt(high, zeroReference)),
      log2OfReference_(std::log2(static_cast<double>(zeroReference))) {}

void ClippedDecibels::ofEach(const int16_t* samples, size_t count, float* c) const {
  HWY_DYNAMIC_DISPATCH(Log2OfEach)(lowest_, highest_, samples, count, c);
  const auto zero = static_cast<float>(log2OfReference_);
  const auto perDoubling = static_cast<float>(kDecibelsPerDoubling);
  for (size_t i = 0; i < count; ++i) c[i] = std::clamp((c[i] - zero) * perDoubling, low_, high_);
}

double ClippedDecibels::sum(const int16_t* samples, size_t count) const {
  double sumOfLog2 = 0;
  for (size_t at = 0; at < count; at += kSamplesAtOnce) {
    sumOfLog2 += HWY_DYNAMIC_DISPATCH(SumOfLog2)(lowest_, highest_, samples + at, std::min(count - at, kSamplesAtOnce));
  }
  return kDecibelsPerDoubling * (sumOfLog2 - static_cast<double>(count) * log2OfReference_);
}

}  // namespace vidloom
#endif
