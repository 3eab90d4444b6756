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

/// Samples [first, end) of media time.
struct SampleRange {
  int64_t first = 0, end = 0;
};

int64_t sampleAt(const CMTime& time, int rate) {
  return static_cast<int64_t>(
      detail::divideRounded(detail::Int128{time.value} * rate, std::max(1, time.timescale), kCMTimeRoundingMethod_Default).value);
}

class FileAudioDecoder final : public AudioDecoder {
 public:
  explicit FileAudioDecoder(std::unique_ptr<SoundDecoder> decoder)
      : decoder_(std::move(decoder)), channels_(decoder_->packets().track().channels) {
    for (const MediaEdit& edit : decoder_->packets().track().edits) {
      if (edit.isEmpty()) continue;
      const int64_t first = sampleAt(edit.mediaStart, decoder_->rate());
      edits_.push_back({first, first + sampleAt(edit.target.duration, decoder_->rate())});
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

  int readNextNative16(int16_t* interleaved, int maxFrames) override {
    while (edit_ < edits_.size() && nativeAt_.value_or(edits_[edit_].first) >= edits_[edit_].end) {
      ++edit_;
      nativeAt_.reset();
    }
    if (edit_ >= edits_.size() || maxFrames <= 0) return 0;
    const int64_t first = nativeAt_.value_or(edits_[edit_].first);
    const int count = static_cast<int>(std::min<int64_t>(maxFrames, edits_[edit_].end - first));
    std::fill_n(interleaved, ptrdiff_t{count} * channels_, int16_t{0});
    const bool going = forEachStretch({first, first + count}, [&](int offset, int64_t at, int stretch) {
      ChannelFold::native16(*block_.frame, offset, stretch, channels_, interleaved + (at - first) * channels_);
    });
    nativeAt_ = first + count;
    return going ? count : 0;
  }

 private:
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
  std::vector<SampleRange> edits_;
  size_t edit_ = 0;
  std::optional<int64_t> nativeAt_;
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
