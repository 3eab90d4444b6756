#include "vidloom/platform/pixels/ScalePlan.h"

#include <algorithm>

namespace vidloom {

ScalePlan::ScalePlan(int sourceWidth, int sourceHeight, const AxisMap& map, const SampleRect& rect)
    : destination(rect),
      across(map.scaleX, map.offsetX, sourceWidth, rect.x0, rect.width()),
      down(map.scaleY, map.offsetY, sourceHeight, rect.y0, rect.height()),
      acrossFirst(map.scaleY > 1) {
  if (!across.isCopy()) horizontal.emplace(across);
}

std::shared_ptr<const ScalePlan> ScalePlanCache::plan(int sourceWidth, int sourceHeight, const AxisMap& map,
                                                      const SampleRect& destination) {
  const auto isWanted = [&](const Entry& entry) {
    return entry.width == sourceWidth && entry.height == sourceHeight && entry.map == map && entry.plan->destination == destination;
  };
  {
    std::lock_guard lock(mutex_);
    const auto found = std::find_if(entries_.begin(), entries_.end(), isWanted);
    if (found != entries_.end()) {
      entries_.splice(entries_.begin(), entries_, found);
      return found->plan;
    }
  }
  auto made = std::make_shared<const ScalePlan>(sourceWidth, sourceHeight, map, destination);
  std::lock_guard lock(mutex_);
  entries_.push_front({sourceWidth, sourceHeight, map, made});
  if (entries_.size() > kKeptPlans) entries_.pop_back();
  return made;
}

}  // namespace vidloom
