// Editing of segment lists: what the operations of composition tracks are made of.
#pragma once

#include <cstddef>
#include <vector>

#include "vidloom/platform/avfoundation/AVAssetTrack.h"

namespace vidloom::detail {

/// In order, without gaps, the first at zero, none of zero length. The last one is not empty once an edit is complete.
using SegmentList = std::vector<MediaSegment>;

/// The end of the last segment; zero without one.
CMTime endOfSegments(const SegmentList& segments);
/// The index of the segment that holds `time`, its end not included; the size at or past the end.
size_t segmentIndexAt(const SegmentList& segments, const CMTime& time);
/// Makes a border at `time`, which lies within zero and the end. Gives the index of the segment that begins there.
size_t splitSegmentsAt(SegmentList& segments, const CMTime& time);
/// What `range`, which lies within the list, holds of it, moved to zero.
SegmentList copyOfSegments(const SegmentList& segments, const CMTimeRange& range);
/// Moves the segments from `index` on by the distance between two times. Exact where the result is a time at all.
void moveSegments(SegmentList& segments, size_t index, const CMTime& from, const CMTime& to);
/// Maps the borders of the segments [first, last), which fill `from`, linearly to `to`.
void stretchSegments(SegmentList& segments, size_t first, size_t last, const CMTimeRange& from, const CMTimeRange& to);
/// Makes one segment of the empty segments that meet at the border before `index`.
void mergeEmptySegmentsAt(SegmentList& segments, size_t index);
void dropTrailingEmptySegments(SegmentList& segments);

MediaSegment emptySegment(const CMTimeRange& target);

}  // namespace vidloom::detail
