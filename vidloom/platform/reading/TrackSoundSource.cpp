#include "vidloom/platform/reading/TrackSoundSource.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "vidloom/platform/dispatch/dispatch.h"
#include "vidloom/platform/reading/AudioSamples.h"
#include "vidloom/platform/reading/ReadingErrors.h"

namespace vidloom {

namespace {

std::vector<uint8_t> bytesOf(const int16_t* samples, size_t count, bool isFloat) {
  std::vector<uint8_t> bytes(count * (isFloat ? sizeof(float) : sizeof(int16_t)));
  if (!isFloat) {
    std::memcpy(bytes.data(), samples, bytes.size());
    return bytes;
  }
  for (size_t i = 0; i < count; ++i) {
    const float value = static_cast<float>(samples[i]) / 32768.0f;
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
  block_.resize(static_cast<size_t>(setup_.blockFrames) * static_cast<size_t>(format_.channels));
  return true;
}

int TrackSoundSource::readBlock() {
  while (!isCancelled_) {
    const int64_t until = frame_ < firstFrame_ ? firstFrame_ : endFrame_;
    const auto wanted = static_cast<int>(std::min<int64_t>(setup_.blockFrames, until - frame_));
    const int count = wanted > 0 ? decoder_->readNextNative16(block_.data(), wanted) : 0;
    frame_ += count;
    if (count == 0 || frame_ > firstFrame_) return count;
  }
  return 0;
}

CMSampleBufferRef TrackSoundSource::next(std::optional<NSError>* error) {
  if (isCancelled_ || (!decoder_ && !open(error))) {
    if (isCancelled_ && error) error->reset();
    return nullptr;
  }
  const int count = readBlock();
  if (count == 0 || isCancelled_) return nullptr;
  const size_t values = static_cast<size_t>(count) * static_cast<size_t>(format_.channels);
  const CMTime time = CMTimeAdd(setup_.track->timeRange().start, CMTimeMake(frame_ - count, format_.sampleRate));
  return audioSample(bytesOf(block_.data(), values, setup_.isFloat), description_, count, time);
}

}  // namespace vidloom
