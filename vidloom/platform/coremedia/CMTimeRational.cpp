#include "vidloom/platform/coremedia/CMTimeRational.h"

#include <cmath>
#include <limits>

namespace vidloom::detail {

namespace {

constexpr Int128 kLargestNumerator = Int128{1} << 96;
constexpr Int128 kLargestDenominator = Int128{1} << 62;

constexpr bool fitsInt64(Int128 value) {
  return value >= std::numeric_limits<int64_t>::min() && value <= std::numeric_limits<int64_t>::max();
}

bool roundsAwayFromZero(Int128 remainder, Int128 denominator, CMTimeRoundingMethod method) {
  const bool negative = remainder < 0;
  const Int128 magnitude = negative ? -remainder : remainder;
  switch (method) {
    case CMTimeRoundingMethod::kRoundTowardZero:
      return false;
    case CMTimeRoundingMethod::kRoundAwayFromZero:
      return true;
    case CMTimeRoundingMethod::kRoundTowardPositiveInfinity:
      return !negative;
    case CMTimeRoundingMethod::kRoundTowardNegativeInfinity:
      return negative;
    case CMTimeRoundingMethod::kQuickTime:
    case CMTimeRoundingMethod::kRoundHalfAwayFromZero:
      break;
  }
  return magnitude >= denominator - magnitude;
}

/// The timescale for an exact numerator / denominator (in lowest terms): the preferred one, a multiple of it, or the
/// denominator itself; 0 where no timescale can hold it.
CMTimeScale exactTimescale(Int128 denominator, CMTimeScale preferred) {
  const Int128 common = denominator / greatestCommonDivisor(denominator, preferred) * preferred;
  if (common <= kCMTimeMaxTimescale) return static_cast<CMTimeScale>(common);
  return denominator <= kCMTimeMaxTimescale ? static_cast<CMTimeScale>(denominator) : 0;
}

}  // namespace

Int128 greatestCommonDivisor(Int128 a, Int128 b) {
  a = a < 0 ? -a : a;
  b = b < 0 ? -b : b;
  while (b != 0) {
    const Int128 rest = a % b;
    a = b;
    b = rest;
  }
  return a;
}

RoundedQuotient divideRounded(Int128 numerator, Int128 denominator, CMTimeRoundingMethod method) {
  Int128 quotient = numerator / denominator;
  const Int128 remainder = numerator % denominator;
  if (remainder == 0) return {quotient, true};
  if (roundsAwayFromZero(remainder, denominator, method)) quotient += remainder < 0 ? -1 : 1;
  return {quotient, false};
}

CMTime timeFromFraction(Int128 numerator, Int128 denominator, CMTimeScale timescale, CMTimeRoundingMethod method, bool rounded,
                        CMTimeEpoch epoch) {
  while (true) {
    const RoundedQuotient result = divideRounded(numerator * timescale, denominator, method);
    if (fitsInt64(result.value)) {
      const CMTimeFlags roundedFlag = rounded || !result.exact ? kCMTimeFlags_HasBeenRounded : 0;
      return {static_cast<int64_t>(result.value), timescale, kCMTimeFlags_Valid | roundedFlag, epoch};
    }
    if (timescale == 1) return infinityOfSign(numerator < 0);
    timescale /= 2;
  }
}

CMTime multiplyByFraction(const CMTime& time, Int128 numerator, Int128 denominator) {
  const Int128 first = greatestCommonDivisor(time.value, denominator);
  const Int128 second = greatestCommonDivisor(numerator, time.timescale);
  const Int128 third = greatestCommonDivisor(numerator / second, denominator / first);
  Int128 top = 0, bottom = 0;
  const bool tooLong = __builtin_mul_overflow(time.value / first, numerator / second / third, &top) ||
                       __builtin_mul_overflow(time.timescale / second, denominator / first / third, &bottom);
  if (tooLong || top >= kLargestNumerator || top <= -kLargestNumerator || bottom > kLargestDenominator) {
    const long double factor = static_cast<long double>(numerator) / static_cast<long double>(denominator);
    const long double ticks = static_cast<long double>(time.value) / time.timescale * factor * kCMTimeMaxTimescale;
    if (std::fabs(ticks) >= 0x1p95L) return infinityOfSign(ticks < 0);
    return timeFromFraction(static_cast<Int128>(std::round(ticks)), kCMTimeMaxTimescale, kCMTimeMaxTimescale,
                            kCMTimeRoundingMethod_Default, true, time.epoch);
  }
  const CMTimeScale exact = exactTimescale(bottom, time.timescale);
  return timeFromFraction(top, bottom, exact != 0 ? exact : kCMTimeMaxTimescale, kCMTimeRoundingMethod_Default,
                          CMTIME_HAS_BEEN_ROUNDED(time), time.epoch);
}

}  // namespace vidloom::detail
