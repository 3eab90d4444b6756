#include "vidloom/platform/reading/FrameGrid.h"

#include <algorithm>

namespace vidloom {

FrameGrid::FrameGrid(const CMTimeRange& range, const CMTime& frameDuration)
    : start_(range.start),
      frameDuration_(frameDuration),
      count_(std::max<int64_t>(0, (ExactTime(range.duration) / ExactTime(frameDuration)).ceilTicks(1))) {}

ExactTime FrameGrid::exactTime(int64_t index) const { return ExactTime(start_) + ExactTime(index, 1) * ExactTime(frameDuration_); }

CMTime FrameGrid::time(int64_t index) const {
  return CMTimeAdd(start_, CMTimeMultiply(frameDuration_, static_cast<int32_t>(index)));
}

}  // namespace vidloom
