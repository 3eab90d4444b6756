// Ranges of media time and mappings between them.
#pragma once

#include <ostream>

#include "vidloom/platform/coremedia/CMTime.h"

namespace vidloom {

struct CMTimeRange {
  CMTime start;
  CMTime duration;
};

struct CMTimeMapping {
  CMTimeRange source;
  CMTimeRange target;
};

inline constexpr CMTimeRange kCMTimeRangeZero{kCMTimeZero, kCMTimeZero};
inline constexpr CMTimeRange kCMTimeRangeInvalid{kCMTimeInvalid, kCMTimeInvalid};

/// Start and duration valid, the duration of epoch 0 and with a value of at least 0.
constexpr bool CMTIMERANGE_IS_VALID(const CMTimeRange& r) {
  return CMTIME_IS_VALID(r.start) && CMTIME_IS_VALID(r.duration) && r.duration.epoch == 0 && r.duration.value >= 0;
}
constexpr bool CMTIMERANGE_IS_INVALID(const CMTimeRange& r) { return !CMTIMERANGE_IS_VALID(r); }
bool CMTIMERANGE_IS_EMPTY(const CMTimeRange& range);

/// A plain pair; a duration with a non-zero epoch gives an invalid range.
CMTimeRange CMTimeRangeMake(const CMTime& start, const CMTime& duration);
CMTimeRange CMTimeRangeFromTimeToTime(const CMTime& start, const CMTime& end);
CMTime CMTimeRangeGetEnd(const CMTimeRange& range);
/// Half open: the end is not contained.
bool CMTimeRangeContainsTime(const CMTimeRange& range, const CMTime& time);
bool CMTimeRangeContainsTimeRange(const CMTimeRange& range, const CMTimeRange& otherRange);
bool CMTimeRangeEqual(const CMTimeRange& range1, const CMTimeRange& range2);
/// The smallest range that holds both, what lies between them included.
CMTimeRange CMTimeRangeGetUnion(const CMTimeRange& range, const CMTimeRange& otherRange);
/// The largest range inside both; an empty range where there is none.
CMTimeRange CMTimeRangeGetIntersection(const CMTimeRange& range, const CMTimeRange& otherRange);
/// Linear, also outside `fromRange`; invalid where either range is empty.
CMTime CMTimeMapTimeFromRangeToRange(const CMTime& time, const CMTimeRange& fromRange, const CMTimeRange& toRange);
CMTime CMTimeMapDurationFromRangeToRange(const CMTime& duration, const CMTimeRange& fromRange, const CMTimeRange& toRange);

std::ostream& operator<<(std::ostream& out, const CMTimeRange& range);

}  // namespace vidloom
