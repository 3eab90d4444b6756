#include "tools/TimelineLayout.h"

#include <algorithm>
#include <utility>

#include "vidloom/compositing/LUMAVComposition.h"
#include "vidloom/compositing/LUMAVCompositionInstruction.h"
#include "vidloom/timeline/LUMComposition.h"
#include "vidloom/timeline/LUMTrack.h"

namespace vidloom {
namespace {

LayoutRow rowOf(const AVMutableCompositionTrack_Item& item) {
  LayoutRow row;
  row.isVideo = item.mediaType() == AVMediaTypeVideo;
  row.tracks = item.innerTracks();
  auto ordered = row.tracks;
  std::stable_sort(ordered.begin(), ordered.end(),
                   [](const auto& a, const auto& b) { return CMTimeCompare(a->start(), b->start()) < 0; });
  for (const AVCompositionTrackSegment& segment : item.track()->segments()) {
    LayoutSegment entry{segment.timeMapping.source, segment.timeMapping.target, nullptr};
    if (!segment.isEmpty()) {
      const auto next =
          std::upper_bound(ordered.begin(), ordered.end(), entry.target.start,
                           [](const CMTime& time, const auto& track) { return CMTimeCompare(time, track->start()) < 0; });
      if (next != ordered.begin()) entry.track = *std::prev(next);
    }
    row.segments.push_back(entry);
  }
  return row;
}

}  // namespace

std::vector<LayoutRow> layoutOf(const std::shared_ptr<LUMComposition>& timeline) {
  const auto data = LUMAVComposition::buildCompositionData(timeline);
  const auto pipeline = std::dynamic_pointer_cast<LUMAVCompositionInstruction>(data->videoComposition()->instructions().front());
  std::vector<LayoutRow> rows;
  for (const auto& item : std::as_const(*pipeline).composition_tracks()) {
    rows.push_back(rowOf(*item));
    rows.back().number = static_cast<int>(rows.size());
  }
  return rows;
}

}  // namespace vidloom
