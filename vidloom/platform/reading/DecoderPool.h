// The open decoders of one output, shared by the cursors of its tracks.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <type_traits>
#include <vector>

#include "vidloom/platform/ffmpeg/AudioDecoder.h"
#include "vidloom/platform/ffmpeg/VideoDecoder.h"

namespace vidloom {

/// Keeps decoders open between uses: those that are in use now, which those of the round before still count as, and kIdleDecoders
/// more; of the others the one that was used least recently goes first. Two tracks that read one file at the same time have a
/// decoder each; a track that comes back to a file finds its old decoder where it is still open. Used by one thread at a time;
/// cancel() comes from any.
template <class Decoder>
class DecoderPool {
 public:
  using Opener = std::function<std::unique_ptr<Decoder>(const std::shared_ptr<const MediaFile>& file, int trackIndex,
                                                        std::optional<NSError>* error)>;
  /// A video decoder holds some thirty megabytes of frames at 1080p and has to seek when it is used again, like a new one. One of
  /// sound is small, and goes on where it is used for the next cut of the same file.
  static constexpr size_t kIdleDecoders = std::is_same_v<Decoder, VideoDecoder> ? 0 : 2;

  explicit DecoderPool(Opener opener) : opener_(std::move(opener)) {}

  /// Begins the work on another output frame or block of sound. What is acquired from here on is in use at the same time.
  void beginRound() { ++round_; }
  /// A decoder of that track for the cursor with that number; valid until the next round. Null with an error where none can be
  /// opened, and after cancel().
  Decoder* acquire(int cursor, const std::shared_ptr<const MediaFile>& file, int trackIndex, std::optional<NSError>* error);
  /// Cancels every open decoder and all to come. Any thread.
  void cancel();
  /// Closes all decoders.
  void close();

  size_t openCount() const;
  /// How many decoders were ever opened: for tests and statistics.
  int openingCount() const { return openingCount_; }

 private:
  struct Entry {
    std::shared_ptr<const MediaFile> file;
    int trackIndex;
    std::unique_ptr<Decoder> decoder;
    int cursor;
    uint64_t lastRound;
    bool isCurrent;  ///< the one that its cursor acquired last
  };
  Entry* find(int cursor, const MediaFile* file, int trackIndex);
  Decoder* open(int cursor, const std::shared_ptr<const MediaFile>& file, int trackIndex, std::optional<NSError>* error);
  void closeIdle();

  const Opener opener_;
  mutable std::mutex mutex_;  ///< guards entries_ against cancel() and openCount()
  std::vector<Entry> entries_;
  bool cancelled_ = false;
  uint64_t round_ = 1;
  int openingCount_ = 0;
};

using VideoDecoderPool = DecoderPool<VideoDecoder>;
using AudioDecoderPool = DecoderPool<AudioDecoder>;

/// Openers of the real decoders.
VideoDecoderPool::Opener openVideoDecoders();
AudioDecoderPool::Opener openAudioDecoders();

}  // namespace vidloom
