#include "vidloom/platform/avfoundation/AVAudioMix.h"

#include <algorithm>
#include <cmath>

#include "vidloom/platform/avfoundation/AVAssetTrack.h"

namespace vidloom {

std::shared_ptr<AVMutableAudioMixInputParameters> AVMutableAudioMixInputParameters::audioMixInputParametersWithTrack(
    const std::shared_ptr<AVAssetTrack>& track) {
  auto parameters = std::make_shared<AVMutableAudioMixInputParameters>(AVMutableAudioMixInputParameters());
  if (track) parameters->trackID_ = track->trackID();
  return parameters;
}

void AVMutableAudioMixInputParameters::setKey(const Key& key) {
  if (!std::isfinite(key.startSeconds) || !std::isfinite(key.durationSeconds) || key.durationSeconds < 0) return;
  const auto after = std::upper_bound(keys_.begin(), keys_.end(), key.startSeconds,
                                      [](double seconds, const Key& other) { return seconds < other.startSeconds; });
  if (after != keys_.begin() && std::prev(after)->startSeconds == key.startSeconds) {
    *std::prev(after) = key;
  } else {
    keys_.insert(after, key);
  }
}

void AVMutableAudioMixInputParameters::setVolume(float volume, const CMTime& atTime) {
  setKey({CMTimeGetSeconds(atTime), 0, volume, volume});
}

void AVMutableAudioMixInputParameters::setVolumeRampFromStartVolume(float startVolume, float toEndVolume,
                                                                    const CMTimeRange& timeRange) {
  setKey({CMTimeGetSeconds(timeRange.start), CMTimeGetSeconds(timeRange.duration), startVolume, toEndVolume});
}

float AVMutableAudioMixInputParameters::volumeAtSeconds(double seconds) const {
  const auto after =
      std::upper_bound(keys_.begin(), keys_.end(), seconds, [](double s, const Key& key) { return s < key.startSeconds; });
  if (after == keys_.begin()) return 1.0f;
  const Key& key = *std::prev(after);
  const double elapsedSeconds = seconds - key.startSeconds;
  if (!(elapsedSeconds < key.durationSeconds)) return key.to;
  const double change = static_cast<double>(key.to) - static_cast<double>(key.from);
  return static_cast<float>(static_cast<double>(key.from) + change * (elapsedSeconds / key.durationSeconds));
}

bool AVMutableAudioMixInputParameters::isUnity() const {
  return std::all_of(keys_.begin(), keys_.end(), [](const Key& key) { return key.from == 1.0f && key.to == 1.0f; });
}

std::shared_ptr<AVMutableAudioMix> AVMutableAudioMix::audioMix() {
  return std::make_shared<AVMutableAudioMix>(AVMutableAudioMix());
}

std::shared_ptr<AVMutableAudioMix> AVMutableAudioMix::copy() const {
  auto copied = std::make_shared<AVMutableAudioMix>(*this);
  for (auto& parameters : copied->inputParameters_) {
    if (parameters) parameters = std::make_shared<AVMutableAudioMixInputParameters>(*parameters);
  }
  return copied;
}

}  // namespace vidloom
