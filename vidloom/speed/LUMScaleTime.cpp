#include "vidloom/speed/LUMScaleTime.h"

namespace vidloom {

std::shared_ptr<LUMScaleTime> LUMScaleTime::initWithDuration(const CMTime& duration, const CMTimeRange& timeRange,
                                                             const CMTime& start) {
  return std::make_shared<LUMScaleTime>(duration, timeRange, start);
}

std::shared_ptr<LUMScaleTime> LUMScaleTime::copy() const { return initWithDuration(duration_, timeRange_, start_); }

}  // namespace vidloom
