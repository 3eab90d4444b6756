#include "vidloom/platform/reading/DecoderPool.h"

#include <algorithm>

#include "vidloom/platform/avfoundation/AVError.h"

namespace vidloom {

template <class Decoder>
Decoder* DecoderPool<Decoder>::acquire(int cursor, const std::shared_ptr<const MediaFile>& file, int trackIndex,
                                       std::optional<NSError>* error) {
  // What this cursor read before is idle from here on.
  for (Entry& entry : entries_) entry.isCurrent = entry.isCurrent && entry.cursor != cursor;
  Entry* entry = find(cursor, file.get(), trackIndex);
  if (!entry) return open(cursor, file, trackIndex, error);
  entry->cursor = cursor;
  entry->lastRound = round_;
  entry->isCurrent = true;
  return entry->decoder.get();
}

template <class Decoder>
typename DecoderPool<Decoder>::Entry* DecoderPool<Decoder>::find(int cursor, const MediaFile* file, int trackIndex) {
  Entry* idle = nullptr;
  for (Entry& entry : entries_) {
    if (entry.file.get() != file || entry.trackIndex != trackIndex) continue;
    if (entry.cursor == cursor) return &entry;
    // Another cursor that used it in the round before has probably only not come round to it yet.
    if (entry.lastRound + 1 < round_) idle = &entry;
  }
  return idle;
}

template <class Decoder>
Decoder* DecoderPool<Decoder>::open(int cursor, const std::shared_ptr<const MediaFile>& file, int trackIndex,
                                    std::optional<NSError>* error) {
  closeIdle();
  std::unique_ptr<Decoder> decoder = opener_(file, trackIndex, error);
  if (!decoder) return nullptr;
  ++openingCount_;
  const std::lock_guard lock(mutex_);
  if (cancelled_) {
    if (error) *error = AVMakeError(AVErrorOperationCancelled, "Reading was cancelled");
    return nullptr;
  }
  entries_.push_back({file, trackIndex, std::move(decoder), cursor, round_, true});
  return entries_.back().decoder.get();
}

template <class Decoder>
void DecoderPool<Decoder>::closeIdle() {
  // That of a cursor whose turn in this round may still come counts, too.
  const auto isInUse = [&](const Entry& entry) { return entry.isCurrent && entry.lastRound + 1 >= round_; };
  const auto inUse = static_cast<size_t>(std::count_if(entries_.begin(), entries_.end(), isInUse));
  std::vector<std::unique_ptr<Decoder>> closed;  // ended outside the lock: joining a decoder's threads takes a while
  const std::lock_guard lock(mutex_);
  while (entries_.size() > inUse + kIdleDecoders) {
    const auto oldest = std::min_element(entries_.begin(), entries_.end(), [&](const Entry& a, const Entry& b) {
      return std::pair(isInUse(a), a.lastRound) < std::pair(isInUse(b), b.lastRound);
    });
    closed.push_back(std::move(oldest->decoder));
    entries_.erase(oldest);
  }
}

template <class Decoder>
void DecoderPool<Decoder>::cancel() {
  const std::lock_guard lock(mutex_);
  cancelled_ = true;
  for (Entry& entry : entries_) entry.decoder->cancel();
}

template <class Decoder>
void DecoderPool<Decoder>::close() {
  std::vector<Entry> closed;
  const std::lock_guard lock(mutex_);
  closed.swap(entries_);
}

template <class Decoder>
size_t DecoderPool<Decoder>::openCount() const {
  const std::lock_guard lock(mutex_);
  return entries_.size();
}

template class DecoderPool<VideoDecoder>;
template class DecoderPool<AudioDecoder>;

VideoDecoderPool::Opener openVideoDecoders() {
  return [](const std::shared_ptr<const MediaFile>& file, int trackIndex, std::optional<NSError>* error) {
    return VideoDecoder::open(file, trackIndex, {}, error);
  };
}

AudioDecoderPool::Opener openAudioDecoders() {
  return [](const std::shared_ptr<const MediaFile>& file, int trackIndex, std::optional<NSError>* error) {
    return AudioDecoder::open(file, trackIndex, error);
  };
}

}  // namespace vidloom
