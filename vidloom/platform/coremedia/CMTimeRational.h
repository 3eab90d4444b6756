// Exact fractions in 128 bits: what the operations of media time share.
#pragma once

#include "vidloom/platform/coremedia/CMTime.h"

namespace vidloom::detail {

using Int128 = __int128;

/// Numeric with a timescale that can be divided by. Times whose timescale is zero or below count as invalid in every operation.
constexpr bool isNumber(const CMTime& time) { return CMTIME_IS_NUMERIC(time) && time.timescale > 0; }
constexpr bool isNoTime(const CMTime& time) { return CMTIME_IS_INVALID(time) || (CMTIME_IS_NUMERIC(time) && time.timescale <= 0); }
constexpr CMTime infinityOfSign(bool negative) { return negative ? kCMTimeNegativeInfinity : kCMTimePositiveInfinity; }

Int128 greatestCommonDivisor(Int128 a, Int128 b);

struct RoundedQuotient {
  Int128 value;
  bool exact;
};
/// numerator / denominator (above zero) as a whole number. kQuickTime is not one of the methods here.
RoundedQuotient divideRounded(Int128 numerator, Int128 denominator, CMTimeRoundingMethod method);

/// numerator / denominator seconds at `timescale`. While the value does not fit 64 bits the timescale is halved, at timescale 1
/// the answer is an infinity. |numerator| must be below 2^96, the denominator within 1 ... 2^62. Marked rounded where that
/// happened or where `rounded` says that it happened before.
CMTime timeFromFraction(Int128 numerator, Int128 denominator, CMTimeScale timescale, CMTimeRoundingMethod method, bool rounded,
                        CMTimeEpoch epoch);

/// time x numerator / denominator (both above zero), exact where a timescale for it exists, else rounded to the finest one.
CMTime multiplyByFraction(const CMTime& time, Int128 numerator, Int128 denominator);

}  // namespace vidloom::detail
