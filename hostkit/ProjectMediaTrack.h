#pragma once

#include <memory>

#include "vidloom/timeline/LUMAVAssetTrack.h"

namespace vidloom {

/// A media track whose sound is that of the shown part of the file, whatever the trims: what of it lies between them, up to the end
/// of the sound. (The base takes the trims off the sound's own length, and drops the sound where the head trim is longer than what
/// is left.) Nothing else is placed on its composition tracks for as long as it plays at its speed. (The base asks for the length
/// at natural speed, and others that are placed in the rest of a slow track are moved by it.)
class ProjectMediaTrack : public LUMAVAssetTrack {
 public:
  static std::shared_ptr<ProjectMediaTrack> initWithAVAsset(std::shared_ptr<AVAsset> asset, uint64_t objectId);

  CMTime audioDuration() const override;
  CMTimeRange trackGlobalTimeRange() const override;
  CMTimeRange audioTrackInnerTimeRange() const override;
  std::shared_ptr<LUMTrack> copyWithId(uint64_t objectId) const override;

 protected:
  ProjectMediaTrack() = default;
};

}  // namespace vidloom
