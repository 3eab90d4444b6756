// The instruction of a video composition whose frames a filter handler makes.
#pragma once

#include "vidloom/platform/avfoundation/AVAsynchronousCIImageFilteringRequest.h"
#include "vidloom/platform/avfoundation/AVVideoCompositionInstruction.h"

namespace vidloom {

/// Covers all of time. Immutable.
class CIFilterInstruction : public AVVideoCompositionInstruction {
 public:
  /// `track` may be null: the handler then gets black frames.
  CIFilterInstruction(const std::shared_ptr<AVAssetTrack>& track, AVCIImageFilteringHandler handler);

  CMTimeRange timeRange() const override { return {kCMTimeZero, kCMTimePositiveInfinity}; }
  std::optional<std::vector<CMPersistentTrackID>> requiredSourceTrackIDs() const override;

  const AVCIImageFilteringHandler& handler() const { return handler_; }
  /// Of the track: turns its pictures upright.
  const CGAffineTransform& preferredTransform() const { return preferredTransform_; }

 private:
  const AVCIImageFilteringHandler handler_;
  CMPersistentTrackID trackID_ = kCMPersistentTrackID_Invalid;
  CGAffineTransform preferredTransform_ = CGAffineTransformIdentity;
};

}  // namespace vidloom
