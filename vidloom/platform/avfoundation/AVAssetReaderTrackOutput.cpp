#include <algorithm>
#include <cmath>

#include "vidloom/platform/avfoundation/AVAssetReaderOutput.h"
#include "vidloom/platform/avfoundation/AVAssetTrack.h"
#include "vidloom/platform/avfoundation/AVError.h"
#include "vidloom/platform/ffmpeg/MediaFile.h"
#include "vidloom/platform/reading/AudioSettings.h"
#include "vidloom/platform/reading/PixelFormats.h"
#include "vidloom/platform/reading/TrackFrameSource.h"
#include "vidloom/platform/reading/TrackSoundSource.h"

namespace vidloom {

namespace {

constexpr double kMaximumSide = 32768;

std::shared_ptr<SampleSource> makeFrameSource(const std::shared_ptr<AVAssetTrack>& track,
                                              const std::optional<NSDictionary>& settings, const CMTimeRange& range,
                                              std::optional<NSError>* error) {
  const std::optional<OSType> format = settings ? pixelFormatIn(*settings) : std::nullopt;
  double width = 0, height = 0;
  if (settings) {
    numberValue(*settings, kCVPixelBufferWidthKey, width);
    numberValue(*settings, kCVPixelBufferHeightKey, height);
  }
  const bool hasSize = width >= 0 && height >= 0 && width <= kMaximumSide && height <= kMaximumSide;
  if (!format || !hasSize) {
    *error = AVMakeError(AVErrorUnsupportedOutputSettings,
                         format ? "The video settings name a size that cannot be had"
                                : "The video settings name no pixel format among '420f', '420v' and 'BGRA'");
    return nullptr;
  }
  TrackFrameSource::Setup setup;
  setup.track = track;
  setup.pixelFormat = *format;
  setup.width = static_cast<int>(std::lround(width));
  setup.height = static_cast<int>(std::lround(height));
  setup.range = range;
  return std::make_shared<TrackFrameSource>(std::move(setup));
}

/// The form in which the track's sound is stored; that of mixes for the track of a composition.
AudioFormat ownFormat(const AVAssetTrack& track) {
  const MediaTrack* media = track.mediaTrack();
  if (!media) return {};
  return {static_cast<int>(std::lround(media->sampleRate)), media->channels, false};
}

std::shared_ptr<SampleSource> makeSoundSource(const std::shared_ptr<AVAssetTrack>& track,
                                              const std::optional<NSDictionary>& settings, const CMTimeRange& range,
                                              std::optional<NSError>* error) {
  const AudioFormat own = ownFormat(*track);
  const std::optional<AudioFormat> format = audioFormatIn(settings, own, error);
  if (!format) return nullptr;
  if (track->mediaTrack() && format->sampleRate == own.sampleRate && format->channels == own.channels) {
    TrackSoundSource::Setup setup;
    setup.track = track;
    setup.isFloat = format->isFloat;
    setup.range = range;
    return std::make_shared<TrackSoundSource>(std::move(setup));
  }
  if (format->channels > 2) {
    *error = AVMakeError(AVErrorUnsupportedOutputSettings, "More than two channels come out at the track's own rate only");
    return nullptr;
  }
  AudioMixer::Setup setup;
  setup.audioTracks = {track};
  setup.format = *format;
  setup.range = range;
  return std::make_shared<AudioMixer>(std::move(setup));
}

}  // namespace

std::shared_ptr<AVAssetReaderTrackOutput> AVAssetReaderTrackOutput::initWithTrack(
    const std::shared_ptr<AVAssetTrack>& track, const std::optional<NSDictionary>& outputSettings) {
  const std::shared_ptr<AVAssetReaderTrackOutput> output(new AVAssetReaderTrackOutput);
  output->track_ = track;
  output->outputSettings_ = outputSettings;
  return output;
}

const AVMediaType& AVAssetReaderTrackOutput::mediaType() const { return track_ ? track_->mediaType() : AVMediaTypeVideo; }

bool AVAssetReaderTrackOutput::fitsAsset(const std::shared_ptr<AVAsset>& asset) const {
  return track_ && track_->asset() == asset && (track_->mediaType() == AVMediaTypeVideo || track_->mediaType() == AVMediaTypeAudio);
}

std::shared_ptr<SampleSource> AVAssetReaderTrackOutput::makeSource(const CMTimeRange& range, std::optional<NSError>* error) {
  if (track_->mediaType() == AVMediaTypeAudio) return makeSoundSource(track_, outputSettings_, range, error);
  return makeFrameSource(track_, outputSettings_, range, error);
}

}  // namespace vidloom
