// Finds the segment of a track that fills a moment, and the media time that it shows.
#pragma once

#include <cstddef>
#include <vector>

#include "vidloom/platform/avfoundation/AVAssetTrack.h"
#include "vidloom/platform/reading/ExactTime.h"

namespace vidloom {

/// A walk along the segments of one track. Cheap where times ask for the same segment as before or the next one. One thread.
class SegmentWalk {
 public:
  explicit SegmentWalk(std::vector<MediaSegment> segments) : segments_(std::move(segments)) {}

  /// The segment on screen at `time`; null before zero, from the end of the track on, and where the track is empty. A segment
  /// begins with its start and ends where the next one starts.
  const MediaSegment* segmentAt(const ExactTime& time);
  /// What the segment shows at `time`, exact, also where the segment is scaled.
  static ExactTime mediaTime(const MediaSegment& segment, const ExactTime& time);
  const std::vector<MediaSegment>& segments() const { return segments_; }

 private:
  bool startsAtOrBefore(size_t index, const ExactTime& time) const;
  bool endsAfter(size_t index, const ExactTime& time) const;

  std::vector<MediaSegment> segments_;
  size_t current_ = 0;
};

}  // namespace vidloom
