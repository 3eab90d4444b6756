// The grid of times at which an output shows frames.
#pragma once

#include "vidloom/platform/coremedia/CMTimeRange.h"
#include "vidloom/platform/reading/ExactTime.h"

namespace vidloom {

/// Frames at range.start + n x frameDuration as long as that lies before the range's end. The range must be numeric, the frame
/// duration above zero.
class FrameGrid {
 public:
  FrameGrid(const CMTimeRange& range, const CMTime& frameDuration);
  int64_t count() const { return count_; }
  ExactTime exactTime(int64_t index) const;
  /// The same as a time of its own; rounded only where no timescale holds it.
  CMTime time(int64_t index) const;
  const CMTime& frameDuration() const { return frameDuration_; }

 private:
  CMTime start_, frameDuration_;
  int64_t count_;
};

}  // namespace vidloom
