// Media time: an exact rational number of seconds with a flag word and an epoch.
#pragma once

#include <cstdint>
#include <limits>
#include <ostream>

namespace vidloom {

using CMTimeValue = int64_t;
using CMTimeScale = int32_t;
using CMTimeEpoch = int64_t;
using CMTimeFlags = uint32_t;

inline constexpr CMTimeScale kCMTimeMaxTimescale = 0x7fffffff;

inline constexpr CMTimeFlags kCMTimeFlags_Valid = 1;
inline constexpr CMTimeFlags kCMTimeFlags_HasBeenRounded = 2;
inline constexpr CMTimeFlags kCMTimeFlags_PositiveInfinity = 4;
inline constexpr CMTimeFlags kCMTimeFlags_NegativeInfinity = 8;
inline constexpr CMTimeFlags kCMTimeFlags_Indefinite = 16;
inline constexpr CMTimeFlags kCMTimeFlags_ImpliedValueFlagsMask = 28;

/// value / timescale seconds. An all-zero time is invalid: it stands for "no time".
struct CMTime {
  CMTimeValue value = 0;
  CMTimeScale timescale = 0;
  CMTimeFlags flags = 0;
  CMTimeEpoch epoch = 0;
};

enum class CMTimeRoundingMethod : uint32_t {
  kRoundHalfAwayFromZero = 1,  ///< the default
  kRoundTowardZero = 2,
  kRoundAwayFromZero = 3,
  kQuickTime = 4,  ///< toward zero to a smaller timescale, away from zero to a larger; a negative never becomes 0
  kRoundTowardPositiveInfinity = 5,
  kRoundTowardNegativeInfinity = 6,
};
inline constexpr CMTimeRoundingMethod kCMTimeRoundingMethod_Default = CMTimeRoundingMethod::kRoundHalfAwayFromZero;

inline constexpr CMTime kCMTimeInvalid{};
inline constexpr CMTime kCMTimeZero{0, 1, kCMTimeFlags_Valid, 0};
inline constexpr CMTime kCMTimePositiveInfinity{0, 0, kCMTimeFlags_Valid | kCMTimeFlags_PositiveInfinity, 0};
inline constexpr CMTime kCMTimeNegativeInfinity{0, 0, kCMTimeFlags_Valid | kCMTimeFlags_NegativeInfinity, 0};
inline constexpr CMTime kCMTimeIndefinite{0, 0, kCMTimeFlags_Valid | kCMTimeFlags_Indefinite, 0};

constexpr bool CMTIME_IS_VALID(const CMTime& t) { return (t.flags & kCMTimeFlags_Valid) != 0; }
constexpr bool CMTIME_IS_INVALID(const CMTime& t) { return !CMTIME_IS_VALID(t); }
constexpr bool CMTIME_IS_NUMERIC(const CMTime& t) {
  return (t.flags & (kCMTimeFlags_Valid | kCMTimeFlags_ImpliedValueFlagsMask)) == kCMTimeFlags_Valid;
}
constexpr bool CMTIME_IS_POSITIVEINFINITY(const CMTime& t) {
  return CMTIME_IS_VALID(t) && (t.flags & kCMTimeFlags_PositiveInfinity) != 0;
}
constexpr bool CMTIME_IS_NEGATIVEINFINITY(const CMTime& t) {
  return CMTIME_IS_VALID(t) && (t.flags & kCMTimeFlags_NegativeInfinity) != 0;
}
constexpr bool CMTIME_IS_INDEFINITE(const CMTime& t) { return CMTIME_IS_VALID(t) && (t.flags & kCMTimeFlags_Indefinite) != 0; }
constexpr bool CMTIME_HAS_BEEN_ROUNDED(const CMTime& t) {
  return CMTIME_IS_NUMERIC(t) && (t.flags & kCMTimeFlags_HasBeenRounded) != 0;
}

/// The fields as given, never reduced, epoch 0. A timescale of zero or below gives an invalid time.
CMTime CMTimeMake(CMTimeValue value, CMTimeScale timescale);
/// seconds x timescale, truncated toward zero; marked rounded where that lost something. A timescale too fine for the value is
/// halved until it fits; NaN and timescales of zero or below give an invalid time, infinities and overflow an infinite one.
CMTime CMTimeMakeWithSeconds(double seconds, CMTimeScale timescale);
/// NaN for invalid and indefinite times, +-infinity for infinite ones; the epoch takes no part.
double CMTimeGetSeconds(const CMTime& time);

/// Sum and difference, exact where the least common multiple of the timescales is at most kCMTimeMaxTimescale, else rounded to
/// that timescale. Overflow halves the timescale, at timescale 1 it gives an infinity.
CMTime CMTimeAdd(const CMTime& lhs, const CMTime& rhs);
CMTime CMTimeSubtract(const CMTime& lhs, const CMTime& rhs);
/// The same timescale, exact; overflow as in CMTimeAdd.
CMTime CMTimeMultiply(const CMTime& time, int32_t multiplier);
/// time x multiplier. The timescale is kept where the product is a whole number in it; otherwise it is doubled until it is at
/// least 65536 and the product rounded half away from zero. NaN and infinite multipliers give an invalid time.
CMTime CMTimeMultiplyByFloat64(const CMTime& time, double multiplier);
/// time x multiplier / divisor, exact where it fits.
CMTime CMTimeMultiplyByRatio(const CMTime& time, int32_t multiplier, int32_t divisor);
CMTime CMTimeConvertScale(const CMTime& time, CMTimeScale newTimescale,
                          CMTimeRoundingMethod method = kCMTimeRoundingMethod_Default);
CMTime CMTimeAbsoluteValue(const CMTime& time);

/// -1, 0 or 1. A total order: -infinity < every number < indefinite < +infinity < invalid; numbers by epoch, then exactly by value.
int32_t CMTimeCompare(const CMTime& time1, const CMTime& time2);
CMTime CMTimeMinimum(const CMTime& time1, const CMTime& time2);
CMTime CMTimeMaximum(const CMTime& time1, const CMTime& time2);

/// "{1/2 = 0.500}" and the names of the special values.
std::ostream& operator<<(std::ostream& out, const CMTime& time);

}  // namespace vidloom
