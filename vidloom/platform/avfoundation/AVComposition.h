// A composition: source media laid out on tracks.
#pragma once

#include <unordered_set>

#include "vidloom/platform/avfoundation/AVAsset.h"
#include "vidloom/platform/avfoundation/AVCompositionTrack.h"

namespace vidloom {

class AVComposition : public AVAsset {
 public:
  CMTime duration() const override;
  std::vector<std::shared_ptr<AVAssetTrack>> tracks() const override;
  /// What was set; (0, 0) or never set: that of the first video track.
  CGSize naturalSize() const override;

 protected:
  AVComposition() = default;
  std::vector<std::shared_ptr<AVMutableCompositionTrack>> tracks_;
  CGSize naturalSize_;
};

/// Edited on one thread. Must not change while a reader reads it.
class AVMutableComposition : public AVComposition {
 public:
  static std::shared_ptr<AVMutableComposition> composition();

  void setNaturalSize(const CGSize& naturalSize) { naturalSize_ = naturalSize; }
  /// A new empty track. The preferred id is used where it was never used in this composition; 0 or a used one gives another.
  std::shared_ptr<AVMutableCompositionTrack> addMutableTrackWithMediaType(const AVMediaType& mediaType,
                                                                          CMPersistentTrackID preferredTrackID);
  void removeTrack(const std::shared_ptr<AVCompositionTrack>& track);

 private:
  AVMutableComposition() = default;
  std::unordered_set<CMPersistentTrackID> usedIDs_;
  CMPersistentTrackID nextID_ = 1;
};

}  // namespace vidloom
