// Volumes of the tracks of a mix.
#pragma once

#include <memory>
#include <vector>

#include "vidloom/platform/avfoundation/AVMediaFormat.h"
#include "vidloom/platform/coremedia/CMTimeRange.h"

namespace vidloom {

class AVAssetTrack;

/// Volume of one track by keys in composition time. Before the first key: 1.
class AVMutableAudioMixInputParameters {
 public:
  static std::shared_ptr<AVMutableAudioMixInputParameters> audioMixInputParametersWithTrack(
      const std::shared_ptr<AVAssetTrack>& track);
  CMPersistentTrackID trackID() const { return trackID_; }
  void setTrackID(CMPersistentTrackID trackID) { trackID_ = trackID; }
  /// A key with a time that is not numeric is ignored.
  void setVolume(float volume, const CMTime& atTime);
  /// Linear from start to end over the range.
  void setVolumeRampFromStartVolume(float startVolume, float toEndVolume, const CMTimeRange& timeRange);
  float volumeAt(const CMTime& time) const { return volumeAtSeconds(CMTimeGetSeconds(time)); }
  float volumeAtSeconds(double seconds) const;
  /// Whether the volume is 1 from beginning to end.
  bool isUnity() const;

 private:
  struct Key {
    double startSeconds, durationSeconds;
    float from, to;
  };
  AVMutableAudioMixInputParameters() = default;
  void setKey(const Key& key);
  CMPersistentTrackID trackID_ = kCMPersistentTrackID_Invalid;
  std::vector<Key> keys_;
};

/// Tracks without parameters play at volume 1.
class AVMutableAudioMix {
 public:
  static std::shared_ptr<AVMutableAudioMix> audioMix();
  /// With copies of the parameters: editing those of the original later does not reach it.
  std::shared_ptr<AVMutableAudioMix> copy() const;
  const std::vector<std::shared_ptr<AVMutableAudioMixInputParameters>>& inputParameters() const { return inputParameters_; }
  void setInputParameters(std::vector<std::shared_ptr<AVMutableAudioMixInputParameters>> inputParameters) {
    inputParameters_ = std::move(inputParameters);
  }

 private:
  AVMutableAudioMix() = default;
  std::vector<std::shared_ptr<AVMutableAudioMixInputParameters>> inputParameters_;
};
using AVAudioMix = AVMutableAudioMix;

}  // namespace vidloom
