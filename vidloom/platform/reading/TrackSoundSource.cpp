#include "vidloom/platform/reading/TrackSoundSource.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <utility>

#include "vidloom/platform/dispatch/dispatch.h"
#include "vidloom/platform/reading/AudioSamples.h"
#include "vidloom/platform/reading/ReadingErrors.h"

namespace vidloom {

namespace {

std::vector<uint8_t> asFloats(const std::vector<uint8_t>& integers) {
  std::vector<uint8_t> bytes(integers.size() / sizeof(int16_t) * sizeof(float));
  for (size_t i = 0; i < integers.size() / sizeof(int16_t); ++i) {
    int16_t sample = 0;
    std::memcpy(&sample, &integers[i * sizeof sample], sizeof sample);
    const float value = static_cast<float>(sample) / 32768.0f;
    std::memcpy(&bytes[i * sizeof value], &value, sizeof value);
  }
  return bytes;
}

}  // namespace

TrackSoundSource::TrackSoundSource(Setup setup)
    : setup_(std::move(setup)), pool_(std::make_shared<AudioDecoderPool>(setup_.opener)) {}

TrackSoundSource::~TrackSoundSource() {
  // Decoders may take a moment to close, and the last reference may drop on the main thread.
  dispatch_async(dispatch_get_global_queue(QOS_CLASS_UTILITY), [pool = std::move(pool_)]() mutable { pool.reset(); });
}

void TrackSoundSource::cancel() {
  isCancelled_ = true;
  pool_->cancel();
}

bool TrackSoundSource::open(std::optional<NSError>* error) {
  const std::vector<MediaSegment> segments = setup_.track->mediaSegments();
  const auto segment = std::find_if(segments.begin(), segments.end(), [](const MediaSegment& one) { return !one.isEmpty(); });
  if (segment == segments.end()) return false;
  std::optional<NSError> cause;
  decoder_ = pool_->acquire(0, segment->file, segment->trackIndex, &cause);
  if (!decoder_) {
    if (error) *error = readingError(segment->file->path(), CMTimeGetSeconds(setup_.range.start), cause);
    return false;
  }
  format_ = {static_cast<int>(std::lround(decoder_->sampleRate())), decoder_->channels(), setup_.isFloat};
  description_ = audioDescription(format_);
  const ExactTime start = ExactTime(setup_.range.start) - ExactTime(setup_.track->timeRange().start);
  firstFrame_ = std::max<int64_t>(0, start.ceilTicks(format_.sampleRate));
  endFrame_ = (start + ExactTime(setup_.range.duration)).ceilTicks(format_.sampleRate);
  return true;
}

NativeSound TrackSoundSource::readBlock() {
  const size_t frameBytes = static_cast<size_t>(format_.channels) * sizeof(int16_t);
  while (!isCancelled_) {
    block_.resize(static_cast<size_t>(setup_.blockFrames) * frameBytes);
    NativeSound sound = decoder_->readNextNative16(reinterpret_cast<int16_t*>(block_.data()), setup_.blockFrames);
    if (sound.frameCount == 0 || sound.firstFrame >= endFrame_) break;
    const int64_t end = std::min(sound.firstFrame + sound.frameCount, endFrame_), first = std::max(sound.firstFrame, firstFrame_);
    if (end <= first) continue;
    block_.erase(block_.begin() + static_cast<ptrdiff_t>(end - sound.firstFrame) * static_cast<ptrdiff_t>(frameBytes),
                 block_.end());
    block_.erase(block_.begin(),
                 block_.begin() + static_cast<ptrdiff_t>(first - sound.firstFrame) * static_cast<ptrdiff_t>(frameBytes));
    return {first, static_cast<int>(end - first)};
  }
  return {};
}

CMSampleBufferRef TrackSoundSource::next(std::optional<NSError>* error) {
  if (isCancelled_ || (!decoder_ && !open(error))) {
    if (isCancelled_ && error) error->reset();
    return nullptr;
  }
  const NativeSound sound = readBlock();
  if (sound.frameCount == 0 || isCancelled_) return nullptr;
  const CMTime time = CMTimeAdd(setup_.track->timeRange().start, CMTimeMake(sound.firstFrame, format_.sampleRate));
  return audioSample(setup_.isFloat ? asFloats(block_) : std::exchange(block_, {}), description_, sound.frameCount, time);
}

}  // namespace vidloom
