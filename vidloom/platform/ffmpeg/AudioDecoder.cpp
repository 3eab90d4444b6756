#include "vidloom/platform/ffmpeg/AudioDecoder.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "vidloom/platform/coremedia/CMTimeRational.h"
#include "vidloom/platform/ffmpeg/ChannelFold.h"
#include "vidloom/platform/ffmpeg/InputError.h"
#include "vidloom/platform/ffmpeg/SoundDecoder.h"

namespace vidloom {

namespace {

/// Samples [first, end).
struct SampleRange {
  int64_t first = 0, end = 0;
};

/// An edit that shows something.
struct NativeEdit {
  SampleRange media;
  int64_t firstFrame = 0;  ///< counted from the beginning of the first one
};

constexpr int64_t kMostSilentSeconds = 86400;  // more of it comes of damaged time stamps

int64_t sampleAt(const CMTime& time, int rate) {
  return static_cast<int64_t>(
      detail::divideRounded(detail::Int128{time.value} * rate, std::max(1, time.timescale), kCMTimeRoundingMethod_Default).value);
}

class FileAudioDecoder final : public AudioDecoder {
 public:
  explicit FileAudioDecoder(std::unique_ptr<SoundDecoder> decoder)
      : decoder_(std::move(decoder)), channels_(decoder_->packets().track().channels) {
    silenceLeft_ = kMostSilentSeconds * decoder_->rate();
    std::optional<int64_t> origin;
    for (const MediaEdit& edit : decoder_->packets().track().edits) {
      if (edit.isEmpty()) continue;
      const int64_t first = sampleAt(edit.mediaStart, decoder_->rate()), at = sampleAt(edit.target.start, decoder_->rate());
      const int64_t count = sampleAt(CMTimeRangeGetEnd(edit.target), decoder_->rate()) - at;
      if (!origin) origin = at;
      edits_.push_back({{first, first + count}, at - *origin});
    }
  }

  double sampleRate() const override { return decoder_->rate(); }
  int channels() const override { return channels_; }
  void cancel() override { decoder_->packets().cancel(); }

  bool read(int64_t firstFrame, int frameCount, float* interleavedStereo) override {
    std::fill_n(interleavedStereo, ptrdiff_t{2} * frameCount, 0.0f);
    return forEachStretch({firstFrame, firstFrame + frameCount}, [&](int offset, int64_t at, int count) {
      fold_.stereo(*block_.frame, offset, count, interleavedStereo + 2 * (at - firstFrame));
    });
  }

  NativeSound readNextNative16(int16_t* interleaved, int maxFrames) override {
    NativeSound sound;
    while (sound.frameCount < maxFrames && findSound()) {
      const int64_t frame = edits_[edit_].firstFrame + mediaAt_ - edits_[edit_].media.first;
      const int64_t silence = hasBegun_ ? std::min(frame - nativeFrame_, silenceLeft_) : 0;
      if (silence == 0 && frame != nativeFrame_) {
        if (sound.frameCount > 0) break;
        nativeFrame_ = frame;
      }
      if (sound.frameCount == 0) sound.firstFrame = nativeFrame_;
      int16_t* const out = interleaved + ptrdiff_t{sound.frameCount} * channels_;
      const int room = maxFrames - sound.frameCount;
      const int count = silence > 0 ? giveSilence(std::min<int64_t>(silence, room), out) : giveSound(room, out);
      sound.frameCount += count;
      nativeFrame_ += count;
    }
    return decoder_->packets().isCancelled() ? NativeSound{} : sound;
  }

 private:
  /// Goes on to the next sound that an edit shows: that of block_ from mediaAt_ on. False at the end and after cancel().
  bool findSound() {
    for (; edit_ < edits_.size(); ++edit_, isInEdit_ = false) {
      const SampleRange& range = edits_[edit_].media;
      if (!isInEdit_) {
        mediaAt_ = range.first;
        if (!goTo(mediaAt_)) return false;
        isInEdit_ = true;
      }
      while (!atEnd_ && (!hasBlock_ || block_.end <= mediaAt_)) {
        if (!advance()) return false;
      }
      if (atEnd_) continue;
      mediaAt_ = std::max(mediaAt_, block_.first);
      if (mediaAt_ < range.end) return true;
    }
    return false;
  }

  int giveSilence(int64_t count, int16_t* out) {
    std::fill_n(out, count * channels_, int16_t{0});
    silenceLeft_ -= count;
    return static_cast<int>(count);
  }

  int giveSound(int room, int16_t* out) {
    const int64_t there = std::min(block_.end, edits_[edit_].media.end) - mediaAt_;
    const int count = static_cast<int>(std::min<int64_t>(room, there));
    ChannelFold::native16(*block_.frame, static_cast<int>(mediaAt_ - block_.first), count, channels_, out);
    mediaAt_ += count;
    hasBegun_ = true;
    return count;
  }

  /// Calls `use` for every stretch of the range that there is sound for: where it is in block_, its sample number and length.
  template <typename Use>
  bool forEachStretch(const SampleRange& range, const Use& use) {
    if (!goTo(range.first)) return false;
    for (int64_t at = range.first; at < range.end && !atEnd_;) {
      if (!hasBlock_ || block_.end <= at) {
        if (!advance()) return false;
        continue;
      }
      if (block_.first >= range.end) break;
      const int64_t from = std::max(at, block_.first), to = std::min(range.end, block_.end);
      use(static_cast<int>(from - block_.first), from, static_cast<int>(to - from));
      at = to;
    }
    return !decoder_->packets().isCancelled();
  }

  bool advance() {
    if (hasBlock_) lowest_ = std::max(lowest_, block_.end);
    return take(decoder_->next(block_));
  }

  bool take(SoundDecoder::Status status) {
    hasBlock_ = status == SoundDecoder::Status::block;
    atEnd_ = status == SoundDecoder::Status::end;
    return status != SoundDecoder::Status::cancelled;
  }

  /// Decoding on is cheaper than a jump for a second or two.
  bool goTo(int64_t sample) {
    const int64_t reached = hasBlock_ ? block_.end : decoder_->firstSample();
    const bool isAhead = sample >= lowest_ && (atEnd_ || sample - reached < 2 * int64_t{decoder_->rate()});
    if (isAhead) return true;
    lowest_ = sample;
    return take(decoder_->restartBefore(sample, block_));
  }

  std::unique_ptr<SoundDecoder> decoder_;
  int channels_;
  ChannelFold fold_;
  SoundBlock block_;
  bool hasBlock_ = false, atEnd_ = false;
  int64_t lowest_ = std::numeric_limits<int64_t>::min();  ///< samples from here on can still be had without a jump

  std::vector<NativeEdit> edits_;
  size_t edit_ = 0;
  bool isInEdit_ = false;    ///< mediaAt_ is in that edit
  bool hasBegun_ = false;    ///< some sound was given
  int64_t mediaAt_ = 0;      ///< the sample that is given next
  int64_t nativeFrame_ = 0;  ///< and its number as a frame, unless silence comes first
  int64_t silenceLeft_ = 0;
};

}  // namespace

std::unique_ptr<AudioDecoder> AudioDecoder::open(std::shared_ptr<const MediaFile> file, int trackIndex,
                                                 std::optional<NSError>* error) {
  auto opened = std::dynamic_pointer_cast<const OpenedMediaFile>(file);
  if (!opened || trackIndex < 0 || static_cast<size_t>(trackIndex) >= opened->tracks().size() ||
      opened->tracks()[static_cast<size_t>(trackIndex)].kind != MediaKind::audio) {
    setInputError(error, inputError(AVErrorNoSourceTrack, file ? file->path() : "", "has no such audio track"));
    return nullptr;
  }
  auto packets = PacketSource::open(std::move(opened), trackIndex, error);
  auto decoder = packets ? SoundDecoder::open(std::move(packets), error) : nullptr;
  return decoder ? std::make_unique<FileAudioDecoder>(std::move(decoder)) : nullptr;
}

}  // namespace vidloom
