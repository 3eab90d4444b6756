#pragma once

#include <memory>
#include <vector>

#include "tools/TimelineLayout.h"

namespace vidloom {

/// Two tracks whose pictures overlap, in time and place, and that native composition stacks the other way round than a host that
/// draws tracks listed later over earlier ones.
struct OrderConflict {
  std::shared_ptr<LUMTrack> nativeTop;
  std::shared_ptr<LUMTrack> drawnTop;
  CMTimeRange range;  ///< while both are visible
};

/// In the order of time.
std::vector<OrderConflict> orderConflictsOf(const std::shared_ptr<LUMComposition>& timeline);

}  // namespace vidloom
