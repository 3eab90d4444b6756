// Matchers for media time.
#pragma once

#include <gmock/gmock.h>

#include "vidloom/platform/coremedia/CMTimeRange.h"

namespace vidloom {

/// The same fields; a special value matches any of its kind.
MATCHER_P(IsTime, expected, "is " + ::testing::PrintToString(expected)) {
  if (!CMTIME_IS_NUMERIC(expected) || !CMTIME_IS_NUMERIC(arg)) return arg.flags == expected.flags;
  return arg.value == expected.value && arg.timescale == expected.timescale && arg.flags == expected.flags &&
         arg.epoch == expected.epoch;
}
inline auto Is(const CMTime& expected) { return IsTime(expected); }

}  // namespace vidloom
