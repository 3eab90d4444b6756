#include "hostkit/ProjectMediaTrack.h"

#include "vidloom/platform/avfoundation/AVAsset.h"
#include "vidloom/speed/LUMScaleContext.h"

namespace vidloom {

std::shared_ptr<ProjectMediaTrack> ProjectMediaTrack::initWithAVAsset(std::shared_ptr<AVAsset> asset, uint64_t objectId) {
  const auto track = std::make_shared<ProjectMediaTrack>(ProjectMediaTrack());
  return track->prepareWithAVAsset(std::move(asset), objectId) ? track : nullptr;
}

CMTime ProjectMediaTrack::audioDuration() const {
  const auto sound = audioTrack();
  if (sound == nullptr) return internalDuration();
  const CMTime shownEnd = CMTimeSubtract(assetDuration(), rightTrimOffset());
  const CMTime end = CMTimeMinimum(CMTimeRangeGetEnd(sound->timeRange()), shownEnd);
  return CMTimeMaximum(CMTimeSubtract(end, leftTrimOffset()), kCMTimeZero);
}

CMTimeRange ProjectMediaTrack::trackGlobalTimeRange() const {
  const CMTime natural = internalDuration();
  CMTime played = natural;
  if (const auto context = scaleContext()) {
    for (const LUMScaleTime& time : context->generateTimesForTrack(weak_from_this().lock())) {
      played = CMTimeAdd(played, CMTimeSubtract(time.duration(), time.timeRange().duration));
    }
  }
  return CMTimeRangeMake(start(), CMTimeMaximum(natural, played));
}

CMTimeRange ProjectMediaTrack::audioTrackInnerTimeRange() const {
  if (audioTrack() == nullptr) return LUMAVAssetTrack::audioTrackInnerTimeRange();
  return CMTimeRangeMake(leftTrimOffset(), audioDuration());
}

std::shared_ptr<LUMTrack> ProjectMediaTrack::copyWithId(uint64_t objectId) const {
  auto copy = initWithAVAsset(asset(), objectId);
  if (copy) copySettingsTo(*copy);
  return copy;
}

}  // namespace vidloom
