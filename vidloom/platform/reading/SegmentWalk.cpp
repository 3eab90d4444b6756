#include "vidloom/platform/reading/SegmentWalk.h"

#include <algorithm>

namespace vidloom {

bool SegmentWalk::startsAtOrBefore(size_t index, const ExactTime& time) const {
  return ExactTime(segments_[index].target.start) <= time;
}

bool SegmentWalk::endsAfter(size_t index, const ExactTime& time) const {
  if (index + 1 < segments_.size()) return time < ExactTime(segments_[index + 1].target.start);
  const CMTimeRange& target = segments_[index].target;
  return time < ExactTime(target.start) + ExactTime(target.duration);
}

const MediaSegment* SegmentWalk::segmentAt(const ExactTime& time) {
  if (segments_.empty()) return nullptr;
  const auto covers = [&](size_t index) { return startsAtOrBefore(index, time) && endsAfter(index, time); };
  if (!covers(current_)) {
    if (current_ + 1 < segments_.size() && covers(current_ + 1)) {
      ++current_;
    } else {
      const auto after = std::partition_point(segments_.begin(), segments_.end(),
                                              [&](const MediaSegment& segment) { return ExactTime(segment.target.start) <= time; });
      if (after == segments_.begin()) return nullptr;
      current_ = static_cast<size_t>(after - segments_.begin()) - 1;
      if (!endsAfter(current_, time)) return nullptr;
    }
  }
  return segments_[current_].isEmpty() ? nullptr : &segments_[current_];
}

ExactTime SegmentWalk::mediaTime(const MediaSegment& segment, const ExactTime& time) {
  const ExactTime elapsed = time - ExactTime(segment.target.start);
  const ExactTime start(segment.media.start);
  const CMTime &media = segment.media.duration, &target = segment.target.duration;
  if (media.value == target.value && media.timescale == target.timescale) return start + elapsed;
  return start + elapsed * ExactTime(media) / ExactTime(target);
}

}  // namespace vidloom
