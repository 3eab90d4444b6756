#include <algorithm>

#include "vidloom/platform/avfoundation/AVAssetReaderOutput.h"
#include "vidloom/platform/avfoundation/AVAssetTrack.h"
#include "vidloom/platform/reading/AudioMixer.h"
#include "vidloom/platform/reading/AudioSettings.h"

namespace vidloom {

std::shared_ptr<AVAssetReaderAudioMixOutput> AVAssetReaderAudioMixOutput::initWithAudioTracks(
    const std::vector<std::shared_ptr<AVAssetTrack>>& audioTracks, const std::optional<NSDictionary>& audioSettings) {
  const std::shared_ptr<AVAssetReaderAudioMixOutput> output(new AVAssetReaderAudioMixOutput);
  output->audioTracks_ = audioTracks;
  output->audioSettings_ = audioSettings;
  return output;
}

const AVMediaType& AVAssetReaderAudioMixOutput::mediaType() const { return AVMediaTypeAudio; }

bool AVAssetReaderAudioMixOutput::fitsAsset(const std::shared_ptr<AVAsset>& asset) const {
  return !audioTracks_.empty() && std::all_of(audioTracks_.begin(), audioTracks_.end(), [&](const auto& track) {
    return track && track->mediaType() == AVMediaTypeAudio && track->asset() == asset;
  });
}

std::shared_ptr<SampleSource> AVAssetReaderAudioMixOutput::makeSource(const CMTimeRange& range, std::optional<NSError>* error) {
  const std::optional<AudioFormat> format = audioFormatIn(audioSettings_, {}, error);
  if (!format) return nullptr;
  AudioMixer::Setup setup;
  setup.audioTracks = audioTracks_;
  setup.mix = audioMix_ ? audioMix_->copy() : nullptr;
  setup.format = *format;
  setup.range = range;
  return std::make_shared<AudioMixer>(std::move(setup));
}

}  // namespace vidloom
