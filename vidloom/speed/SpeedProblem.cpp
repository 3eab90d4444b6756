#include "vidloom/speed/SpeedProblem.h"

#include <vector>

#include "vidloom/platform/foundation/NSLog.h"
#include "vidloom/speed/LUMScaleContext.h"
#include "vidloom/timeline/LUMTrack.h"

namespace vidloom {
namespace {

bool isPlayable(const LUMScaleTime& time) {
  return CMTIME_IS_NUMERIC(time.duration()) && CMTimeCompare(time.duration(), kCMTimeZero) >= 0;
}

/// The speed that gave a segment its length, as far as that can be told from it.
const char* speedOf(const LUMScaleTime& time) { return CMTIME_IS_NUMERIC(time.duration()) ? "negative" : "zero or no number"; }

}  // namespace

std::optional<std::string> speedProblemOf(const std::shared_ptr<const LUMTrack>& track) {
  const auto context = track ? track->scaleContext() : nullptr;
  if (!context || CMTimeCompare(track->internalDuration(), kCMTimeZero) <= 0) return std::nullopt;
  const std::string name = "track " + std::to_string(track->objectId()) + ": ";
  CMTime whole = kCMTimeZero;
  const std::vector<LUMScaleTime> times = context->generateTimesForTrack(track);
  for (const LUMScaleTime& time : times) {
    if (!isPlayable(time)) {
      return name + "the speed is " + speedOf(time) +
             NSStringWithFormat(" at %g s of its content", CMTimeGetSeconds(time.timeRange().start));
    }
    whole = CMTimeAdd(whole, time.duration());
  }
  if (times.empty()) return name + "its speed curve gives no segments";
  if (CMTimeCompare(whole, kCMTimeZero) > 0) return std::nullopt;
  const CMTime covered =
      CMTimeSubtract(track->internalDuration(), CMTimeAdd(context->offsets().leftOffset, context->offsets().rightOffset));
  if (CMTimeCompare(covered, kCMTimeZero) <= 0) return name + "the offsets of its speed leave nothing of its content";
  return name + "its speed is so high that nothing is left of its length";
}

}  // namespace vidloom
