// Everything about a scaling that does not depend on the samples.
#pragma once

#include <list>
#include <memory>
#include <mutex>
#include <optional>

#include "vidloom/platform/pixels/HorizontalFilter.h"
#include "vidloom/platform/pixels/SampleRect.h"
#include "vidloom/platform/pixels/ScaleFilter.h"

namespace vidloom {

/// Where a plane goes: destination = scale * source + offset on each axis, in continuous coordinates.
struct AxisMap {
  double scaleX = 1, scaleY = 1;
  double offsetX = 0, offsetY = 0;
  friend bool operator==(const AxisMap&, const AxisMap&) = default;
};

/// The filters that take a plane of that size to that rectangle of the destination. Each factor is at least 0.5.
struct ScalePlan {
  ScalePlan(int sourceWidth, int sourceHeight, const AxisMap& map, const SampleRect& destination);

  SampleRect destination;
  ScaleFilter across;
  ScaleFilter down;
  std::optional<HorizontalFilter> horizontal;  ///< none where columns are only moved by whole samples
  bool acrossFirst;                            ///< there are fewer source than destination rows
};

/// Keeps the last few plans: both chroma planes share one, and layers mostly stay where they are. Safe to use from any thread.
class ScalePlanCache {
 public:
  std::shared_ptr<const ScalePlan> plan(int sourceWidth, int sourceHeight, const AxisMap& map, const SampleRect& destination);

 private:
  struct Entry {
    int width, height;
    AxisMap map;
    std::shared_ptr<const ScalePlan> plan;
  };

  static constexpr size_t kKeptPlans = 8;

  std::mutex mutex_;
  std::list<Entry> entries_;
};

}  // namespace vidloom
