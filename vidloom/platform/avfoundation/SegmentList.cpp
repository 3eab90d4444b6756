#include "vidloom/platform/avfoundation/SegmentList.h"

#include <algorithm>
#include <iterator>

#include "vidloom/platform/coremedia/CMTimeRational.h"

namespace vidloom::detail {

namespace {

bool areEqual(const CMTime& a, const CMTime& b) { return CMTimeCompare(a, b) == 0; }

CMTime inLowestTerms(const CMTime& time) {
  const auto common = static_cast<int64_t>(greatestCommonDivisor(time.value, time.timescale));
  return {time.value / common, static_cast<CMTimeScale>(time.timescale / common), time.flags, time.epoch};
}

/// Sums whose common timescale is too fine are tried again in lowest terms: borders of several timescales often cancel out.
CMTime sum(const CMTime& a, const CMTime& b) {
  const CMTime plain = CMTimeAdd(a, b);
  return CMTIME_HAS_BEEN_ROUNDED(plain) && isNumber(a) && isNumber(b) ? CMTimeAdd(inLowestTerms(a), inLowestTerms(b)) : plain;
}

bool playsAtNaturalRate(const MediaSegment& segment) { return areEqual(segment.media.duration, segment.target.duration); }

/// The media that `length` of the segment's target plays.
CMTime mediaLength(const MediaSegment& segment, const CMTime& length) {
  if (playsAtNaturalRate(segment)) return length;
  if (CMTIMERANGE_IS_EMPTY(segment.media)) return kCMTimeZero;
  return CMTimeMapDurationFromRangeToRange(length, segment.target, segment.media);
}

/// Cuts the first `length` off the segment and returns it.
MediaSegment takeHead(MediaSegment& segment, const CMTime& length) {
  MediaSegment head = segment;
  head.target.duration = length;
  const CMTime rest = CMTimeSubtract(segment.target.duration, length);
  if (!segment.isEmpty()) {
    const bool natural = playsAtNaturalRate(segment);
    head.media.duration = mediaLength(segment, length);
    segment.media.start = sum(segment.media.start, head.media.duration);
    segment.media.duration = natural ? rest : CMTimeSubtract(segment.media.duration, head.media.duration);
  }
  segment.target = {sum(segment.target.start, length), rest};
  return head;
}

}  // namespace

CMTime endOfSegments(const SegmentList& segments) {
  return segments.empty() ? kCMTimeZero : CMTimeRangeGetEnd(segments.back().target);
}

size_t segmentIndexAt(const SegmentList& segments, const CMTime& time) {
  if (CMTimeCompare(time, endOfSegments(segments)) >= 0) return segments.size();
  const auto next = std::upper_bound(segments.begin(), segments.end(), time, [](const CMTime& t, const MediaSegment& segment) {
    return CMTimeCompare(t, segment.target.start) < 0;
  });
  return next == segments.begin() ? 0 : static_cast<size_t>(next - segments.begin()) - 1;
}

size_t splitSegmentsAt(SegmentList& segments, const CMTime& time) {
  const size_t index = segmentIndexAt(segments, time);
  if (index == segments.size() || CMTimeCompare(segments[index].target.start, time) >= 0) return index;
  MediaSegment head = takeHead(segments[index], CMTimeSubtract(time, segments[index].target.start));
  segments[index].target.start = time;
  segments.insert(segments.begin() + static_cast<std::ptrdiff_t>(index), std::move(head));
  return index + 1;
}

SegmentList copyOfSegments(const SegmentList& segments, const CMTimeRange& range) {
  SegmentList copy;
  const CMTime end = CMTimeRangeGetEnd(range);
  for (size_t i = segmentIndexAt(segments, range.start); i < segments.size(); ++i) {
    MediaSegment piece = segments[i];
    if (CMTimeCompare(piece.target.start, end) >= 0) break;
    if (CMTimeCompare(CMTimeRangeGetEnd(piece.target), end) > 0) piece = takeHead(piece, CMTimeSubtract(end, piece.target.start));
    if (CMTimeCompare(piece.target.start, range.start) < 0) takeHead(piece, CMTimeSubtract(range.start, piece.target.start));
    if (CMTimeCompare(piece.target.duration, kCMTimeZero) > 0) copy.push_back(std::move(piece));
  }
  moveSegments(copy, 0, range.start, kCMTimeZero);
  return copy;
}

void moveSegments(SegmentList& segments, size_t index, const CMTime& from, const CMTime& to) {
  if (areEqual(from, to)) return;
  for (size_t i = index; i < segments.size(); ++i) {
    CMTime& start = segments[i].target.start;
    start = areEqual(start, from) ? to : sum(to, CMTimeSubtract(start, from));
  }
}

void stretchSegments(SegmentList& segments, size_t first, size_t last, const CMTimeRange& from, const CMTimeRange& to) {
  const CMTime end = CMTimeRangeGetEnd(to);
  for (size_t i = first + 1; i < last; ++i) {
    const CMTime offset = CMTimeSubtract(segments[i].target.start, from.start);
    segments[i].target.start = sum(to.start, CMTimeMapDurationFromRangeToRange(offset, from, to));
  }
  segments[first].target.start = to.start;
  for (size_t i = first; i < last; ++i) {
    const CMTime next = i + 1 < last ? segments[i + 1].target.start : end;
    segments[i].target.duration = last - first == 1 ? to.duration : CMTimeSubtract(next, segments[i].target.start);
  }
  const auto begin = segments.begin() + static_cast<std::ptrdiff_t>(first);
  const auto stop = segments.begin() + static_cast<std::ptrdiff_t>(last);
  const auto vanished = [](const MediaSegment& segment) { return CMTimeCompare(segment.target.duration, kCMTimeZero) <= 0; };
  segments.erase(std::remove_if(begin, stop, vanished), stop);
}

void mergeEmptySegmentsAt(SegmentList& segments, size_t index) {
  if (index == 0 || index >= segments.size() || !segments[index - 1].isEmpty() || !segments[index].isEmpty()) return;
  segments[index - 1].target.duration = sum(segments[index - 1].target.duration, segments[index].target.duration);
  segments.erase(segments.begin() + static_cast<std::ptrdiff_t>(index));
}

void dropTrailingEmptySegments(SegmentList& segments) {
  while (!segments.empty() && segments.back().isEmpty()) segments.pop_back();
}

MediaSegment emptySegment(const CMTimeRange& target) { return {target, kCMTimeRangeInvalid, nullptr, 0}; }

}  // namespace vidloom::detail
