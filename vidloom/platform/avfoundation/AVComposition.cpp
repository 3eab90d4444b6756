#include "vidloom/platform/avfoundation/AVComposition.h"

#include <algorithm>

namespace vidloom {

CMTime AVComposition::duration() const {
  CMTime latest = kCMTimeZero;
  for (const auto& track : tracks_) {
    if (!track->segmentList().empty()) latest = CMTimeMaximum(latest, CMTimeRangeGetEnd(track->segmentList().back().target));
  }
  return latest;
}

std::vector<std::shared_ptr<AVAssetTrack>> AVComposition::tracks() const { return {tracks_.begin(), tracks_.end()}; }

CGSize AVComposition::naturalSize() const {
  if (naturalSize_ != CGSizeZero) return naturalSize_;
  const auto video =
      std::find_if(tracks_.begin(), tracks_.end(), [](const auto& track) { return track->mediaType() == AVMediaTypeVideo; });
  return video == tracks_.end() ? CGSizeZero : (*video)->naturalSize();
}

std::shared_ptr<AVMutableComposition> AVMutableComposition::composition() {
  return std::make_shared<AVMutableComposition>(AVMutableComposition());
}

std::shared_ptr<AVMutableCompositionTrack> AVMutableComposition::addMutableTrackWithMediaType(
    const AVMediaType& mediaType, CMPersistentTrackID preferredTrackID) {
  CMPersistentTrackID trackID = preferredTrackID;
  if (trackID <= 0 || !usedIDs_.insert(trackID).second) {
    while (!usedIDs_.insert(nextID_).second) ++nextID_;
    trackID = nextID_;
  }
  auto track = std::make_shared<AVMutableCompositionTrack>(AVMutableCompositionTrack());
  track->asset_ = weak_from_this();
  track->trackID_ = trackID;
  track->mediaType_ = mediaType;
  tracks_.push_back(track);
  return track;
}

void AVMutableComposition::removeTrack(const std::shared_ptr<AVCompositionTrack>& track) {
  const auto found = std::find(tracks_.begin(), tracks_.end(), track);
  if (found == tracks_.end()) return;
  (*found)->asset_.reset();
  tracks_.erase(found);
}

}  // namespace vidloom
