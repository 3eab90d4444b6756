#include "hostkit/WaveformPeaks.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <new>
#include <span>
#include <utility>

#include "vidloom/audio/SoundFormat.h"
#include "vidloom/platform/avfoundation/AVAssetReader.h"
#include "vidloom/platform/avfoundation/AVError.h"

namespace vidloom {
namespace {

/// Folds runs of interleaved samples into pixels, whatever their lengths.
class PeakFolder {
 public:
  explicit PeakFolder(int64_t framesPerPixel) : framesPerPixel_(framesPerPixel) {}

  void append(std::span<const int16_t> samples, int channels) {
    const auto step = static_cast<size_t>(channels);
    while (samples.size() >= step) {
      const auto frames = std::min(samples.size() / step, static_cast<size_t>(framesPerPixel_ - frames_));
      fold(samples.first(frames * step), channels);
      frames_ += static_cast<int64_t>(frames);
      if (frames_ == framesPerPixel_) finishPixel();
      samples = samples.subspan(frames * step);
    }
  }

  std::vector<int16_t> finish() {
    if (frames_ > 0) finishPixel();
    return std::move(values_);
  }

 private:
  void fold(std::span<const int16_t> samples, int channels) {
    if (channels == 1) {
      for (const int16_t sample : samples) take(sample);
    } else if (channels == 2) {
      for (size_t i = 0; i < samples.size(); i += 2) take((samples[i] + samples[i + 1]) / 2);
    } else {
      foldMany(samples, static_cast<size_t>(channels));
    }
  }

  void foldMany(std::span<const int16_t> samples, size_t channels) {
    for (size_t i = 0; i < samples.size(); i += channels) {
      int sum = 0;
      for (size_t channel = 0; channel < channels; ++channel) sum += samples[i + channel];
      take(sum / static_cast<int>(channels));
    }
  }

  void take(int value) {
    lowest_ = std::min(lowest_, value);
    highest_ = std::max(highest_, value);
  }

  void finishPixel() {
    values_.push_back(static_cast<int16_t>(lowest_));
    values_.push_back(static_cast<int16_t>(highest_));
    frames_ = 0;
    lowest_ = std::numeric_limits<int>::max();
    highest_ = std::numeric_limits<int>::min();
  }

  const int64_t framesPerPixel_;
  int64_t frames_ = 0;
  int lowest_ = std::numeric_limits<int>::max(), highest_ = std::numeric_limits<int>::min();
  std::vector<int16_t> values_;
};

int64_t framesPerPixel(double sampleRate, const CMTime& duration, int64_t count) {
  constexpr double kMost = std::numeric_limits<int32_t>::max();
  // Not the rate times the seconds: a whole number of samples stays one when it is divided last.
  const double frames = sampleRate * static_cast<double>(duration.value) / duration.timescale;
  if (count <= 0 || !(frames > 0)) return 1;
  return static_cast<int64_t>(std::clamp(std::ceil(std::floor(frames) / static_cast<double>(count)), 1.0, kMost));
}

/// False where memory has run out.
bool appendSample(const CMSampleBufferRef& sample, PeakFolder& folder) {
  const auto* const stream = CMAudioFormatDescriptionGetStreamBasicDescription(CMSampleBufferGetFormatDescription(sample));
  size_t byteCount = 0;
  uint8_t* bytes = nullptr;
  const OSStatus status = CMBlockBufferGetDataPointer(CMSampleBufferGetDataBuffer(sample), 0, nullptr, &byteCount, &bytes);
  if (status != 0 || stream == nullptr || stream->mChannelsPerFrame == 0) return true;
  try {
    folder.append({reinterpret_cast<const int16_t*>(bytes), byteCount / sizeof(int16_t)},
                  static_cast<int>(stream->mChannelsPerFrame));
    return true;
  } catch (const std::bad_alloc&) {
    return false;
  }
}

std::optional<WaveformPeaks> failed(std::optional<NSError>* error, const NSError& cause) {
  if (error != nullptr) *error = cause;
  return std::nullopt;
}

}  // namespace

std::optional<WaveformPeaks> readWaveformPeaks(const std::shared_ptr<AVURLAsset>& asset, int64_t count,
                                               const WaveformPeaksProgress& progress, std::optional<NSError>* error) {
  std::optional<NSError> problem;
  const auto reader = AVAssetReader::initWithAsset(asset, &problem);
  if (!reader) return failed(error, problem.value_or(AVMakeError(AVErrorUnknown, "cannot be read", asset ? asset->URL() : "")));
  const auto tracks = asset->tracksWithMediaType(AVMediaTypeAudio);
  const auto stream = tracks.empty() ? std::nullopt : streamDescriptionOf(*tracks.front());
  if (!stream) return failed(error, AVMakeError(AVErrorNoSourceTrack, "has no audio track", asset->URL()));
  const auto output = AVAssetReaderTrackOutput::initWithTrack(tracks.front(), sixteenBitSettings());
  reader->addOutput(output);
  reader->startReading();
  const double durationSeconds = CMTimeGetSeconds(asset->duration());
  WaveformPeaks peaks;
  peaks.sampleRate = std::llround(stream->mSampleRate);
  peaks.framesPerPixel = framesPerPixel(stream->mSampleRate, asset->duration(), count);
  PeakFolder folder(peaks.framesPerPixel);
  double percent = 0;
  while (const auto sample = output->copyNextSampleBuffer()) {
    constexpr double kWhole = 100;
    const double read = kWhole * CMTimeGetSeconds(CMSampleBufferGetPresentationTimeStamp(sample)) / durationSeconds;
    if (read > percent) percent = std::min(read, kWhole);
    if (progress && !progress(percent)) {
      reader->cancelReading();
      return failed(error, AVMakeError(AVErrorOperationCancelled, "cancelled", asset->URL()));
    }
    if (!appendSample(sample, folder)) {
      return failed(error,
                    AVMakeError(AVErrorOutOfMemory, asset->URL().filename().string() + ": no memory for its peaks", asset->URL()));
    }
    CMSampleBufferInvalidate(sample);
  }
  if (reader->status() != AVAssetReaderStatusCompleted) {
    return failed(error, reader->error().value_or(AVMakeError(AVErrorUnknown, "cannot be decoded", asset->URL())));
  }
  peaks.values = folder.finish();
  return peaks;
}

}  // namespace vidloom
