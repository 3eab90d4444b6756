#include "vidloom/platform/avfoundation/CIFilterInstruction.h"

#include "vidloom/platform/avfoundation/AVAssetTrack.h"

namespace vidloom {

CIFilterInstruction::CIFilterInstruction(const std::shared_ptr<AVAssetTrack>& track, AVCIImageFilteringHandler handler)
    : handler_(std::move(handler)) {
  if (!track) return;
  trackID_ = track->trackID();
  preferredTransform_ = track->preferredTransform();
}

std::optional<std::vector<CMPersistentTrackID>> CIFilterInstruction::requiredSourceTrackIDs() const {
  if (trackID_ == kCMPersistentTrackID_Invalid) return std::vector<CMPersistentTrackID>{};
  return std::vector{trackID_};
}

}  // namespace vidloom
