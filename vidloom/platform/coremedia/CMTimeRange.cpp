#include "vidloom/platform/coremedia/CMTimeRange.h"

#include "vidloom/platform/coremedia/CMTimeRational.h"

namespace vidloom {

namespace {

bool isUsable(const CMTimeRange& range) { return CMTIMERANGE_IS_VALID(range) && !CMTIMERANGE_IS_EMPTY(range); }

/// duration x (to.duration / from.duration) of two ranges that are not empty.
CMTime scaleDuration(const CMTime& duration, const CMTimeRange& from, const CMTimeRange& to) {
  if (CMTimeCompare(from.duration, to.duration) == 0) return duration;
  if (!detail::isNumber(from.duration) || !detail::isNumber(to.duration)) return kCMTimeInvalid;
  if (!detail::isNumber(duration)) return duration;
  return detail::multiplyByFraction(duration, detail::Int128{to.duration.value} * from.duration.timescale,
                                    detail::Int128{from.duration.value} * to.duration.timescale);
}

}  // namespace

bool CMTIMERANGE_IS_EMPTY(const CMTimeRange& range) {
  return CMTIMERANGE_IS_VALID(range) && CMTimeCompare(range.duration, kCMTimeZero) == 0;
}

CMTimeRange CMTimeRangeMake(const CMTime& start, const CMTime& duration) {
  return duration.epoch == 0 ? CMTimeRange{start, duration} : kCMTimeRangeInvalid;
}

CMTimeRange CMTimeRangeFromTimeToTime(const CMTime& start, const CMTime& end) {
  return CMTimeRangeMake(start, CMTimeSubtract(end, start));
}

CMTime CMTimeRangeGetEnd(const CMTimeRange& range) { return CMTimeAdd(range.start, range.duration); }

bool CMTimeRangeContainsTime(const CMTimeRange& range, const CMTime& time) {
  return CMTIMERANGE_IS_VALID(range) && CMTimeCompare(range.start, time) <= 0 && CMTimeCompare(time, CMTimeRangeGetEnd(range)) < 0;
}

bool CMTimeRangeContainsTimeRange(const CMTimeRange& range, const CMTimeRange& otherRange) {
  return CMTIMERANGE_IS_VALID(range) && CMTIMERANGE_IS_VALID(otherRange) && CMTimeCompare(range.start, otherRange.start) <= 0 &&
         CMTimeCompare(CMTimeRangeGetEnd(otherRange), CMTimeRangeGetEnd(range)) <= 0;
}

bool CMTimeRangeEqual(const CMTimeRange& range1, const CMTimeRange& range2) {
  return CMTimeCompare(range1.start, range2.start) == 0 && CMTimeCompare(range1.duration, range2.duration) == 0;
}

CMTimeRange CMTimeRangeGetUnion(const CMTimeRange& range, const CMTimeRange& otherRange) {
  if (CMTIMERANGE_IS_INVALID(range) || CMTIMERANGE_IS_INVALID(otherRange)) return kCMTimeRangeInvalid;
  return CMTimeRangeFromTimeToTime(CMTimeMinimum(range.start, otherRange.start),
                                   CMTimeMaximum(CMTimeRangeGetEnd(range), CMTimeRangeGetEnd(otherRange)));
}

CMTimeRange CMTimeRangeGetIntersection(const CMTimeRange& range, const CMTimeRange& otherRange) {
  if (CMTIMERANGE_IS_INVALID(range) || CMTIMERANGE_IS_INVALID(otherRange)) return kCMTimeRangeInvalid;
  const CMTime start = CMTimeMaximum(range.start, otherRange.start);
  const CMTime end = CMTimeMinimum(CMTimeRangeGetEnd(range), CMTimeRangeGetEnd(otherRange));
  return CMTimeCompare(start, end) < 0 ? CMTimeRangeFromTimeToTime(start, end) : kCMTimeRangeZero;
}

CMTime CMTimeMapTimeFromRangeToRange(const CMTime& time, const CMTimeRange& fromRange, const CMTimeRange& toRange) {
  if (!isUsable(fromRange) || !isUsable(toRange) || detail::isNoTime(time)) return kCMTimeInvalid;
  if (detail::isNumber(time) && time.epoch != fromRange.start.epoch) return kCMTimeInvalid;
  return CMTimeAdd(scaleDuration(CMTimeSubtract(time, fromRange.start), fromRange, toRange), toRange.start);
}

CMTime CMTimeMapDurationFromRangeToRange(const CMTime& duration, const CMTimeRange& fromRange, const CMTimeRange& toRange) {
  if (!isUsable(fromRange) || !isUsable(toRange) || detail::isNoTime(duration) || duration.epoch != 0) return kCMTimeInvalid;
  return scaleDuration(duration, fromRange, toRange);
}

std::ostream& operator<<(std::ostream& out, const CMTimeRange& range) {
  return out << '{' << range.start << ", " << range.duration << '}';
}

}  // namespace vidloom
