#include "vidloom/platform/avfoundation/AVAudioSampleFeed.h"

#include <cmath>

#include "vidloom/platform/avfoundation/AVError.h"

namespace vidloom {

namespace {

CMTime timeOf(int64_t frames, double sampleRate) { return CMTimeMake(frames, static_cast<CMTimeScale>(sampleRate)); }

const AudioStreamBasicDescription* streamOf(const CMSampleBufferRef& sample) {
  return CMAudioFormatDescriptionGetStreamBasicDescription(CMSampleBufferGetFormatDescription(sample));
}

}  // namespace

std::string AVAudioSampleFeed::problemWith(const CMSampleBufferRef& sample) const {
  const AudioStreamBasicDescription* stream = streamOf(sample);
  const CMBlockBufferRef block = CMSampleBufferGetDataBuffer(sample);
  if (stream == nullptr || !block) return "the sample holds no sound";
  const double bytesPerSecond = stream->mSampleRate * stream->mChannelsPerFrame * stream->mBitsPerChannel / 8;
  const double seconds = static_cast<double>(CMSampleBufferGetNumSamples(sample)) / stream->mSampleRate;
  if (!(seconds * bytesPerSecond <= static_cast<double>(block->bytes().size()) + 0.5))
    return "the sample holds fewer frames than it says";
  std::string why;
  if (!converter_ || !converter_->fits(*stream)) PcmConverter::open(*stream, settings_.sampleRate, settings_.channels, why);
  return why;
}

bool AVAudioSampleFeed::isAsEncoded(const AudioStreamBasicDescription& stream) const {
  constexpr uint32_t floatBits = 32;
  constexpr uint32_t otherLayouts = kAudioFormatFlagIsBigEndian | kAudioFormatFlagIsNonInterleaved;
  return stream.mFormatID == kAudioFormatLinearPCM && (stream.mFormatFlags & kAudioFormatFlagIsFloat) != 0 &&
         (stream.mFormatFlags & otherLayouts) == 0 && stream.mBitsPerChannel == floatBits &&
         stream.mSampleRate == settings_.sampleRate && stream.mChannelsPerFrame == static_cast<uint32_t>(settings_.channels);
}

bool AVAudioSampleFeed::continuesAt(const CMTime& time, const AudioStreamBasicDescription& stream) const {
  if (!converter_ || !converter_->fits(stream)) return false;
  // Times that are not counted in samples are off by up to half a tick of their own.
  constexpr double toleranceSeconds = 0.001;
  const CMTime expected = CMTimeAdd(runStart_, timeOf(runFramesIn_, stream_.mSampleRate));
  return std::fabs(CMTimeGetSeconds(CMTimeSubtract(time, expected))) <= toleranceSeconds;
}

bool AVAudioSampleFeed::append(const CMSampleBufferRef& sample, const CMTime& time, MovieWriter& movie,
                               std::optional<NSError>* error) {
  const AudioStreamBasicDescription& stream = *streamOf(sample);
  const CMBlockBufferRef block = CMSampleBufferGetDataBuffer(sample);
  const int frameCount = static_cast<int>(CMSampleBufferGetNumSamples(sample));
  if (isAsEncoded(stream)) {
    return endRun(movie, error) &&
           movie.appendAudio(reinterpret_cast<const float*>(block->bytes().data()), frameCount, time, error);
  }
  if (!continuesAt(time, stream) && !startRun(time, stream, movie, error)) return false;
  runFramesIn_ += frameCount;
  return bring(converter_->convert(block->bytes(), frameCount), movie, error);
}

bool AVAudioSampleFeed::startRun(const CMTime& time, const AudioStreamBasicDescription& stream, MovieWriter& movie,
                                 std::optional<NSError>* error) {
  if (!endRun(movie, error)) return false;
  std::string why;
  if (!converter_ || !converter_->fits(stream)) {
    converter_ = PcmConverter::open(stream, settings_.sampleRate, settings_.channels, why);
  }
  if (!converter_) {
    *error = AVMakeError(AVErrorInvalidSourceMedia, why);
    return false;
  }
  stream_ = stream;
  runStart_ = time;
  return true;
}

bool AVAudioSampleFeed::bring(std::span<const float> interleaved, MovieWriter& movie, std::optional<NSError>* error) {
  const int frameCount = static_cast<int>(interleaved.size()) / settings_.channels;
  if (frameCount == 0) return true;
  const CMTime time = CMTimeAdd(runStart_, timeOf(runFramesOut_, settings_.sampleRate));
  runFramesOut_ += frameCount;
  return movie.appendAudio(interleaved.data(), frameCount, time, error);
}

bool AVAudioSampleFeed::endRun(MovieWriter& movie, std::optional<NSError>* error) {
  if (!converter_ || runFramesIn_ == 0) return true;
  const bool brought = bring(converter_->drain(), movie, error);
  runFramesIn_ = runFramesOut_ = 0;
  return brought;
}

bool AVAudioSampleFeed::end(MovieWriter& movie, std::optional<NSError>* error) {
  return endRun(movie, error) && movie.endAudio(error);
}

}  // namespace vidloom
