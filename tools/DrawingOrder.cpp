#include "tools/DrawingOrder.h"

#include <algorithm>
#include <cmath>
#include <map>

#include "vidloom/timeline/LUMComposition.h"
#include "vidloom/timeline/LUMTrack.h"

namespace vidloom {
namespace {

struct Visible {
  std::shared_ptr<LUMTrack> track;
  size_t layer;  ///< native: smaller lies over larger
  size_t place;  ///< in the timeline's list: larger lies over smaller
  CMTime start, end;
  CGRect area;
};

/// The rectangle around the track's picture on the output.
CGRect areaOf(const LUMTrack& track, const CGSize& renderSize) {
  const CGSize size = track.aspectSize();
  const CGAffineTransform transform = track.transform();
  double left = renderSize.width, top = renderSize.height, right = 0, bottom = 0;
  for (const CGPoint corner :
       {CGPointZero, CGPointMake(size.width, 0), CGPointMake(0, size.height), CGPointMake(size.width, size.height)}) {
    const CGPoint at = CGPointApplyAffineTransform(corner, transform);
    left = std::min(left, at.x);
    right = std::max(right, at.x);
    top = std::min(top, at.y);
    bottom = std::max(bottom, at.y);
  }
  left = std::max(left, 0.0);
  top = std::max(top, 0.0);
  return CGRectMake(left, top, std::min(right, renderSize.width) - left, std::min(bottom, renderSize.height) - top);
}

bool overlap(const CGRect& a, const CGRect& b) {
  const double width = std::min(CGRectGetMaxX(a), CGRectGetMaxX(b)) - std::max(CGRectGetMinX(a), CGRectGetMinX(b));
  const double height = std::min(CGRectGetMaxY(a), CGRectGetMaxY(b)) - std::max(CGRectGetMinY(a), CGRectGetMinY(b));
  constexpr double kHairPixels = 1e-6;  // pictures side by side may touch by rounding
  return width > kHairPixels && height > kHairPixels;
}

std::vector<Visible> visibleTracksOf(const std::shared_ptr<LUMComposition>& timeline) {
  std::map<const LUMTrack*, size_t> places;
  for (const auto& track : timeline->allTracks()) places.emplace(track.get(), places.size());
  std::vector<Visible> result;
  const auto rows = layoutOf(timeline);
  for (size_t layer = 0; layer < rows.size(); ++layer) {
    if (!rows[layer].isVideo) continue;
    for (const auto& track : rows[layer].tracks) {
      const CMTime end = CMTimeAdd(track->start(), track->duration());
      result.push_back({track, layer, places[track.get()], track->start(), end, areaOf(*track, timeline->renderSize())});
    }
  }
  std::stable_sort(result.begin(), result.end(),
                   [](const Visible& a, const Visible& b) { return CMTimeCompare(a.start, b.start) < 0; });
  return result;
}

}  // namespace

std::vector<OrderConflict> orderConflictsOf(const std::shared_ptr<LUMComposition>& timeline) {
  std::vector<OrderConflict> conflicts;
  std::vector<const Visible*> open;
  const auto tracks = visibleTracksOf(timeline);
  for (const Visible& track : tracks) {
    std::erase_if(open, [&](const Visible* other) { return CMTimeCompare(other->end, track.start) <= 0; });
    for (const Visible* const other : open) {
      const bool isOverNatively = track.layer < other->layer;
      const bool isOverDrawn = track.place > other->place;
      if (isOverNatively == isOverDrawn || !overlap(track.area, other->area)) continue;
      const CMTimeRange range = CMTimeRangeFromTimeToTime(track.start, CMTimeMinimum(track.end, other->end));
      conflicts.push_back(isOverNatively ? OrderConflict{track.track, other->track, range}
                                         : OrderConflict{other->track, track.track, range});
    }
    open.push_back(&track);
  }
  return conflicts;
}

}  // namespace vidloom
