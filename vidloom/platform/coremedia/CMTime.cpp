#include "vidloom/platform/coremedia/CMTime.h"

#include <cmath>
#include <cstdio>
#include <numeric>

#include "vidloom/platform/coremedia/CMTimeRational.h"

namespace vidloom {

using detail::Int128;

namespace {

constexpr CMTimeScale kFineTimescale = 65536;

bool isInfinite(const CMTime& time) { return CMTIME_IS_POSITIVEINFINITY(time) || CMTIME_IS_NEGATIVEINFINITY(time); }

CMTime negated(const CMTime& time) {
  if (CMTIME_IS_POSITIVEINFINITY(time)) return kCMTimeNegativeInfinity;
  if (CMTIME_IS_NEGATIVEINFINITY(time)) return kCMTimePositiveInfinity;
  return time;
}

/// The sum of two times of which at least one is no number; `rhs` already carries the sign of the operation.
CMTime addSpecial(const CMTime& lhs, const CMTime& rhs) {
  if (detail::isNoTime(lhs) || detail::isNoTime(rhs)) return kCMTimeInvalid;
  if (isInfinite(lhs) && isInfinite(rhs)) {
    return CMTIME_IS_POSITIVEINFINITY(lhs) == CMTIME_IS_POSITIVEINFINITY(rhs) ? lhs : kCMTimeInvalid;
  }
  if (isInfinite(lhs)) return detail::infinityOfSign(CMTIME_IS_NEGATIVEINFINITY(lhs));
  if (isInfinite(rhs)) return detail::infinityOfSign(CMTIME_IS_NEGATIVEINFINITY(rhs));
  return kCMTimeIndefinite;
}

/// The least common multiple; mostly one of the two is it.
int64_t commonTimescale(CMTimeScale a, CMTimeScale b) {
  if (a % b == 0) return a;
  return b % a == 0 ? b : std::lcm(int64_t{a}, int64_t{b});
}

/// lhs + sign x rhs of two numbers whose epochs go together.
CMTime addNumbers(const CMTime& lhs, const CMTime& rhs, int sign, CMTimeEpoch epoch) {
  const bool rounded = CMTIME_HAS_BEEN_ROUNDED(lhs) || CMTIME_HAS_BEEN_ROUNDED(rhs);
  const int64_t common = commonTimescale(lhs.timescale, rhs.timescale);
  const Int128 sum = Int128{lhs.value} * (common / lhs.timescale) + Int128{rhs.value} * (common / rhs.timescale) * sign;
  const auto timescale = static_cast<CMTimeScale>(std::min<int64_t>(common, kCMTimeMaxTimescale));
  if (timescale == common && sum == static_cast<int64_t>(sum)) {
    const CMTimeFlags roundedFlag = rounded ? kCMTimeFlags_HasBeenRounded : 0;
    return {static_cast<int64_t>(sum), timescale, kCMTimeFlags_Valid | roundedFlag, epoch};
  }
  return detail::timeFromFraction(sum, common, timescale, kCMTimeRoundingMethod_Default, rounded, epoch);
}

CMTime addSigned(const CMTime& lhs, const CMTime& rhs, int sign) {
  if (!detail::isNumber(lhs) || !detail::isNumber(rhs)) return addSpecial(lhs, sign < 0 ? negated(rhs) : rhs);
  if (lhs.epoch != 0 && rhs.epoch != 0) {
    return lhs.epoch == rhs.epoch ? addNumbers(lhs, rhs, sign, 0) : kCMTimeInvalid;
  }
  return addNumbers(lhs, rhs, sign, lhs.epoch != 0 ? lhs.epoch : rhs.epoch);
}

/// time x a factor of that sign (-1, 0, 1) where the time is no number.
CMTime multiplySpecial(const CMTime& time, int sign) {
  if (detail::isNoTime(time)) return kCMTimeInvalid;
  if (CMTIME_IS_INDEFINITE(time)) return kCMTimeIndefinite;
  if (sign == 0) return kCMTimeInvalid;
  return detail::infinityOfSign(CMTIME_IS_NEGATIVEINFINITY(time) != (sign < 0));
}

template <typename Number>
int signOf(Number number) {
  return (number > 0) - (number < 0);
}

bool fitsInt64(double value) { return value >= -0x1p63 && value < 0x1p63; }

/// The place in the order of compare: -infinity, numbers, indefinite, +infinity, invalid.
int orderClass(const CMTime& time) {
  if (detail::isNoTime(time)) return 4;
  if (CMTIME_IS_POSITIVEINFINITY(time)) return 3;
  if (CMTIME_IS_NEGATIVEINFINITY(time)) return 0;
  return CMTIME_IS_INDEFINITE(time) ? 2 : 1;
}

CMTimeRoundingMethod methodForScales(CMTimeRoundingMethod method, CMTimeScale from, CMTimeScale to) {
  if (method != CMTimeRoundingMethod::kQuickTime) return method;
  return to < from ? CMTimeRoundingMethod::kRoundTowardZero : CMTimeRoundingMethod::kRoundAwayFromZero;
}

}  // namespace

CMTime CMTimeMake(CMTimeValue value, CMTimeScale timescale) {
  return {value, timescale, timescale > 0 ? kCMTimeFlags_Valid : 0, 0};
}

CMTime CMTimeMakeWithSeconds(double seconds, CMTimeScale timescale) {
  if (std::isnan(seconds) || timescale <= 0) return kCMTimeInvalid;
  if (std::isinf(seconds)) return detail::infinityOfSign(seconds < 0);
  while (!fitsInt64(seconds * timescale) && timescale > 1) timescale /= 2;
  const double ticks = std::trunc(seconds * timescale);
  if (!fitsInt64(ticks)) return detail::infinityOfSign(seconds < 0);
  CMTime time = CMTimeMake(static_cast<int64_t>(ticks), timescale);
  if (CMTimeGetSeconds(time) != seconds) time.flags |= kCMTimeFlags_HasBeenRounded;
  return time;
}

double CMTimeGetSeconds(const CMTime& time) {
  if (detail::isNoTime(time) || CMTIME_IS_INDEFINITE(time)) return std::numeric_limits<double>::quiet_NaN();
  if (CMTIME_IS_POSITIVEINFINITY(time)) return std::numeric_limits<double>::infinity();
  if (CMTIME_IS_NEGATIVEINFINITY(time)) return -std::numeric_limits<double>::infinity();
  return static_cast<double>(time.value) / time.timescale;
}

CMTime CMTimeAdd(const CMTime& lhs, const CMTime& rhs) { return addSigned(lhs, rhs, 1); }

CMTime CMTimeSubtract(const CMTime& lhs, const CMTime& rhs) { return addSigned(lhs, rhs, -1); }

CMTime CMTimeMultiply(const CMTime& time, int32_t multiplier) {
  if (!detail::isNumber(time)) return multiplySpecial(time, signOf(multiplier));
  return detail::timeFromFraction(Int128{time.value} * multiplier, time.timescale, time.timescale, kCMTimeRoundingMethod_Default,
                                  CMTIME_HAS_BEEN_ROUNDED(time), time.epoch);
}

CMTime CMTimeMultiplyByFloat64(const CMTime& time, double multiplier) {
  if (detail::isNoTime(time) || !std::isfinite(multiplier)) return kCMTimeInvalid;
  if (!detail::isNumber(time)) return multiplySpecial(time, signOf(multiplier));
  CMTime result = time;
  double product = static_cast<double>(time.value) * multiplier;
  if (std::trunc(product) == product && fitsInt64(product)) {
    result.value = static_cast<int64_t>(product);
    return result;
  }
  while (result.timescale < kFineTimescale) {
    result.timescale *= 2;
    product *= 2;
  }
  while (!fitsInt64(std::round(product)) && result.timescale > 1) {
    const CMTimeScale halved = result.timescale / 2;
    product *= static_cast<double>(halved) / result.timescale;
    result.timescale = halved;
  }
  if (!fitsInt64(std::round(product))) return detail::infinityOfSign(product < 0);
  if (std::trunc(product) != product) result.flags |= kCMTimeFlags_HasBeenRounded;
  result.value = static_cast<int64_t>(std::round(product));
  return result;
}

CMTime CMTimeMultiplyByRatio(const CMTime& time, int32_t multiplier, int32_t divisor) {
  if (detail::isNoTime(time)) return kCMTimeInvalid;
  if (!detail::isNumber(time)) return time;
  if (divisor == 0) {
    if (time.value == 0 || multiplier == 0) return kCMTimeInvalid;
    return detail::infinityOfSign((time.value < 0) != (multiplier < 0));
  }
  const int64_t common = std::gcd(int64_t{multiplier}, int64_t{divisor}) * signOf(divisor);
  const int64_t factor = multiplier / common, parts = divisor / common;
  const int64_t timescale = time.timescale * parts;
  int64_t value = 0;
  if (timescale <= kCMTimeMaxTimescale && !__builtin_mul_overflow(time.value, factor, &value)) {
    return {value, static_cast<CMTimeScale>(timescale), time.flags, time.epoch};
  }
  return detail::multiplyByFraction(time, factor, parts);
}

CMTime CMTimeConvertScale(const CMTime& time, CMTimeScale newTimescale, CMTimeRoundingMethod method) {
  if (detail::isNoTime(time) || newTimescale <= 0) return kCMTimeInvalid;
  if (!detail::isNumber(time) || newTimescale == time.timescale) return time;
  CMTime result =
      detail::timeFromFraction(time.value, time.timescale, newTimescale, methodForScales(method, time.timescale, newTimescale),
                               CMTIME_HAS_BEEN_ROUNDED(time), time.epoch);
  if (method == CMTimeRoundingMethod::kQuickTime && time.value < 0 && result.value == 0) result.value = -1;
  return result;
}

CMTime CMTimeAbsoluteValue(const CMTime& time) {
  if (detail::isNoTime(time)) return kCMTimeInvalid;
  if (isInfinite(time)) return kCMTimePositiveInfinity;
  return CMTIME_IS_NUMERIC(time) && time.value < 0 ? CMTimeMultiply(time, -1) : time;
}

int32_t CMTimeCompare(const CMTime& time1, const CMTime& time2) {
  const int class1 = orderClass(time1), class2 = orderClass(time2);
  if (class1 != class2) return signOf(class1 - class2);
  if (!detail::isNumber(time1)) return 0;
  if (time1.epoch != time2.epoch) return time1.epoch < time2.epoch ? -1 : 1;
  return signOf(Int128{time1.value} * time2.timescale - Int128{time2.value} * time1.timescale);
}

CMTime CMTimeMinimum(const CMTime& time1, const CMTime& time2) { return CMTimeCompare(time1, time2) <= 0 ? time1 : time2; }

CMTime CMTimeMaximum(const CMTime& time1, const CMTime& time2) { return CMTimeCompare(time1, time2) >= 0 ? time1 : time2; }

std::ostream& operator<<(std::ostream& out, const CMTime& time) {
  if (CMTIME_IS_INVALID(time)) return out << "{INVALID}";
  if (CMTIME_IS_POSITIVEINFINITY(time)) return out << "{+INFINITY}";
  if (CMTIME_IS_NEGATIVEINFINITY(time)) return out << "{-INFINITY}";
  if (CMTIME_IS_INDEFINITE(time)) return out << "{INDEFINITE}";
  char seconds[64];
  std::snprintf(seconds, sizeof seconds, "%.3f", CMTimeGetSeconds(time));
  out << '{' << time.value << '/' << time.timescale << " = " << seconds;
  if (time.epoch != 0) out << ", epoch " << time.epoch;
  if (CMTIME_HAS_BEEN_ROUNDED(time)) out << ", rounded";
  return out << '}';
}

}  // namespace vidloom
