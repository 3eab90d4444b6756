// The track whose content is a media file.
#pragma once

#include "vidloom/platform/avfoundation/AVAssetTrack.h"
#include "vidloom/timeline/LUMTrack.h"

namespace vidloom {

/// The track's preferred transform with the translation that puts a turned or mirrored picture at the origin; the translation of
/// any other matrix is kept.
CGAffineTransform fixedPreferredTransform(const AVAssetTrack& track);

/// A file without picture and sound, or none, gives zero durations, a zero size and an all-zero transform: such a track is empty.
class LUMAVAssetTrack : public LUMTrack {
 public:
  static std::shared_ptr<LUMAVAssetTrack> initWithId(uint64_t objectId);
  static std::shared_ptr<LUMAVAssetTrack> initWithAVAsset(std::shared_ptr<AVAsset> asset, uint64_t objectId);

  const std::shared_ptr<AVAsset>& asset() const { return asset_; }
  /// The host's wish that the sound be left out.
  bool muteAudioFlag() const { return muteAudioFlag_; }
  void setMuteAudioFlag(bool muteAudioFlag) { muteAudioFlag_ = muteAudioFlag; }
  /// The file's first track of the kind; null without one.
  std::shared_ptr<AVAssetTrack> videoTrack() const;
  std::shared_ptr<AVAssetTrack> audioTrack() const;

  bool isContentStatic() const override { return false; }
  std::shared_ptr<AVAsset> dynamicAsset() const override { return asset_; }
  bool isOnlyAudioTrack() const override;
  CGSize aspectSize() const override;
  CGSize transformSize() const override;
  CGAffineTransform preferredTransform() const override;
  /// That of the picture, of the sound where there is no picture; fixed at construction.
  CMTime assetDuration() const override { return assetDuration_; }
  void updateAssetDuration(const CMTime&) override {}
  /// The used length of the sound, never longer than that of the picture.
  CMTime audioDuration() const override;
  CMTimeRange audioTrackGlobalTimeRange() const override;
  /// Zero where the head trim is longer than the sound. Without sound it is the global range, not the inner one.
  CMTimeRange audioTrackInnerTimeRange() const override;
  /// The same file, with copies of speed, crop and user info.
  std::shared_ptr<LUMTrack> copyWithId(uint64_t objectId) const override;

 protected:
  LUMAVAssetTrack() = default;
  /// The steps of initWithAVAsset on a finished object. False: give null.
  bool prepareWithAVAsset(std::shared_ptr<AVAsset> asset, uint64_t objectId);
  /// What copyWithId copies to a new track of the same file.
  void copySettingsTo(LUMAVAssetTrack& copy) const;

 private:
  bool muteAudioFlag_ = false;
  std::shared_ptr<AVAsset> asset_;
  CMTime assetDuration_;
};

}  // namespace vidloom
