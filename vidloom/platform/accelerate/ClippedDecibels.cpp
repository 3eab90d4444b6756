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
/// A product of that many amplitudes stays within the range of floats: 90 dB are a factor of 31623.
constexpr size_t kFactors = 8;

/// Amplitudes relative to the lowest, between 1 and `highest`.
struct Amplitudes {
  FloatVector perUnit, highest;

  HWY_INLINE FloatVector of(const int16_t* samples) const {
    const Floats floats;
    const hn::Rebind<int16_t, Floats> shorts;
    const auto whole = hn::PromoteTo(Integers(), hn::LoadU(shorts, samples));
    const FloatVector relative = hn::Mul(hn::Abs(hn::ConvertTo(floats, whole)), perUnit);
    return hn::Max(hn::Set(floats, 1.0f), hn::Min(relative, highest));
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

/// log2 of a mantissa by the series of the inverse hyperbolic tangent, off by less than 5e-8.
HWY_INLINE FloatVector log2OfMantissa(FloatVector mantissa) {
  const Floats floats;
  const auto one = hn::Set(floats, 1.0f);
  const FloatVector s = hn::Div(hn::Sub(mantissa, one), hn::Add(mantissa, one));
  const FloatVector square = hn::Mul(s, s);
  FloatVector sum = hn::Set(floats, 1.0f / 9);
  for (const float term : {1.0f / 7, 1.0f / 5, 1.0f / 3, 1.0f}) sum = hn::MulAdd(sum, square, hn::Set(floats, term));
  return hn::Mul(hn::Mul(sum, s), hn::Set(floats, 2.885390082f));  // 2 / ln 2
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

/// The sum of log2 of the samples' amplitudes. At most 2^20 samples: the exponents' sum must fit.
double SumOfLog2(float perUnitAmplitude, float highestAmplitude, const int16_t* samples, size_t count) {
  const Floats floats;
  const size_t lanes = hn::Lanes(floats);
  const Amplitudes amplitudes{hn::Set(floats, perUnitAmplitude), hn::Set(floats, highestAmplitude)};
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
    std::array<int16_t, kMaxLanes> rest{};  // what is added is silence, whose logarithm is zero
    std::copy(samples + at, samples + count, rest.begin());
    product = hn::Mul(product, amplitudes.of(rest.data()));
  }
  sum.add(product);
  return sum.total();
}

void Log2OfEach(float perUnitAmplitude, float highestAmplitude, const int16_t* samples, size_t count, float* c) {
  const Floats floats;
  const size_t lanes = hn::Lanes(floats);
  const Amplitudes amplitudes{hn::Set(floats, perUnitAmplitude), hn::Set(floats, highestAmplitude)};
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
constexpr size_t kSamplesAtOnce = size_t{1} << 20;

double amplitudeAt(double decibels) { return std::pow(10.0, decibels / 20); }

}  // namespace

ClippedDecibels::ClippedDecibels(float zeroReference, float low, float high)
    : low_(low),
      high_(high),
      perUnit_(static_cast<float>(1 / (static_cast<double>(zeroReference) * amplitudeAt(low)))),
      highest_(static_cast<float>(amplitudeAt(static_cast<double>(high) - static_cast<double>(low)))) {}

void ClippedDecibels::ofEach(const int16_t* samples, size_t count, float* c) const {
  HWY_DYNAMIC_DISPATCH(Log2OfEach)(perUnit_, highest_, samples, count, c);
  for (size_t i = 0; i < count; ++i) c[i] = std::min(high_, low_ + c[i] * static_cast<float>(kDecibelsPerDoubling));
}

double ClippedDecibels::sumAboveLow(const int16_t* samples, size_t count) const {
  double sum = 0;
  while (count > 0) {
    const size_t part = std::min(count, kSamplesAtOnce);
    sum += HWY_DYNAMIC_DISPATCH(SumOfLog2)(perUnit_, highest_, samples, part);
    samples += part;
    count -= part;
  }
  return sum * kDecibelsPerDoubling;
}

}  // namespace vidloom
#endif
