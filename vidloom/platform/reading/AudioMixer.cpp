#include "vidloom/platform/reading/AudioMixer.h"

#include <algorithm>
#include <cmath>

#include "vidloom/platform/dispatch/dispatch.h"
#include "vidloom/platform/reading/AudioSamples.h"

namespace vidloom {

namespace {

constexpr int kVolumeStepFrames = 64;
constexpr double kLinearTolerance = 1e-6;

/// Where the last sound of a track ends; zero without any.
ExactTime endOfSound(const std::vector<MediaSegment>& segments) {
  for (auto segment = segments.rbegin(); segment != segments.rend(); ++segment) {
    if (!segment->isEmpty()) return ExactTime(segment->target.start) + ExactTime(segment->target.duration);
  }
  return {};
}

std::shared_ptr<const AVMutableAudioMixInputParameters> volumeOf(const AVMutableAudioMix* mix, CMPersistentTrackID trackID) {
  if (!mix) return nullptr;
  for (const auto& parameters : mix->inputParameters()) {
    if (parameters && parameters->trackID() == trackID && !parameters->isUnity()) return parameters;
  }
  return nullptr;
}

}  // namespace

AudioMixer::AudioMixer(Setup setup)
    : format_(setup.format),
      range_(setup.range),
      blockFrames_(setup.blockFrames),
      pool_(std::make_shared<AudioDecoderPool>(std::move(setup.opener))),
      description_(audioDescription(format_)) {
  const ExactTime start(range_.start);
  ExactTime end = start;
  std::vector<std::vector<MediaSegment>> segments;
  for (const auto& track : setup.audioTracks) {
    segments.push_back(track->mediaSegments());
    end = std::max(end, endOfSound(segments.back()));
  }
  end = std::min(end, start + ExactTime(range_.duration));
  frameCount_ = std::max<int64_t>(0, (end - start).ceilTicks(format_.sampleRate));
  tracks_.reserve(segments.size());
  for (size_t i = 0; i < segments.size(); ++i) {
    auto pieces = planAudio(segments[i], start, frameCount_, format_.sampleRate);
    if (pieces.empty()) continue;
    tracks_.push_back({AudioCursor(static_cast<int>(i), std::move(pieces), *pool_, resampler_),
                       volumeOf(setup.mix.get(), setup.audioTracks[i]->trackID())});
  }
}

AudioMixer::~AudioMixer() {
  // Decoders may take a moment to close, and the last reference may drop on the main thread.
  dispatch_async(dispatch_get_global_queue(QOS_CLASS_UTILITY), [pool = std::move(pool_)]() mutable { pool.reset(); });
}

void AudioMixer::cancel() {
  isCancelled_ = true;
  pool_->cancel();
}

double AudioMixer::secondsOf(int64_t frame) const {
  return CMTimeGetSeconds(range_.start) + static_cast<double>(frame) / format_.sampleRate;
}

CMSampleBufferRef AudioMixer::next(std::optional<NSError>* error) {
  const auto count = static_cast<int>(std::min<int64_t>(blockFrames_, frameCount_ - nextFrame_));
  if (isCancelled_ || count <= 0) return nullptr;
  if (!mixBlock(nextFrame_, count, error) || isCancelled_) {
    if (isCancelled_ && error) error->reset();
    nextFrame_ = frameCount_;
    pool_->close();
    return nullptr;
  }
  const CMTime time = CMTimeAdd(range_.start, CMTimeMake(nextFrame_, format_.sampleRate));
  nextFrame_ += count;
  if (nextFrame_ == frameCount_) pool_->close();
  return audioSample(audioBytes(mixed_.data(), count, format_), description_, count, time);
}

bool AudioMixer::mixBlock(int64_t first, int count, std::optional<NSError>* error) {
  pool_->beginRound();
  mixed_.assign(2 * static_cast<size_t>(count), 0.0f);
  single_.resize(mixed_.size());
  for (Track& track : tracks_) {
    if (!track.cursor.hasSound(first, count)) continue;
    if (!track.cursor.render(first, count, secondsOf(first), single_.data(), error)) return false;
    addTrack(track, first, count);
  }
  return true;
}

void AudioMixer::addTrack(const Track& track, int64_t first, int count) {
  if (track.volume) {
    addAtVolume(*track.volume, first, count);
  } else {
    for (size_t i = 0; i < mixed_.size(); ++i) mixed_[i] += single_[i];
  }
}

void AudioMixer::addAtVolume(const AVMutableAudioMixInputParameters& volume, int64_t first, int count) {
  const auto volumeAt = [&](int64_t frame) { return static_cast<double>(volume.volumeAtSeconds(secondsOf(frame))); };
  for (int from = 0; from < count; from += kVolumeStepFrames) {
    const int frames = std::min(kVolumeStepFrames, count - from);
    const double start = volumeAt(first + from), end = volumeAt(first + from + frames);
    const double middle = volumeAt(first + from + frames / 2);
    const double step = (end - start) / frames;
    const bool isLinear = std::abs(start + step * (frames / 2) - middle) < kLinearTolerance;
    for (int i = 0; i < frames; ++i) {
      const auto gain = static_cast<float>(isLinear ? start + step * i : volumeAt(first + from + i));
      const auto sample = 2 * static_cast<size_t>(from + i);
      mixed_[sample] += gain * single_[sample];
      mixed_[sample + 1] += gain * single_[sample + 1];
    }
  }
}

}  // namespace vidloom
