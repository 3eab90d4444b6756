#include "vidloom/audio/SpectrumBlocks.h"

#include <algorithm>

#include "vidloom/platform/foundation/NSLog.h"

namespace vidloom {

namespace {

constexpr float kFullScale = 32768.0f;

}  // namespace

SpectrumBlocks::SpectrumBlocks(WaveformFFTSetting setting, float sampleRate)
    : setting_(std::move(setting)), sampleRate_(sampleRate), fft_(TempiFFT::init(setting_.size, sampleRate)) {
  if (setting_.hop < 1) {
    NSLogAndAbort(NSStringWithFormat("WaveformAnalyzer samples: the hop is %lld, it must be 1 or more",
                                     static_cast<long long>(setting_.hop)));
  }
  fft_->setWindowType(setting_.windowType);
  block_.resize(static_cast<size_t>(setting_.size));
}

void SpectrumBlocks::append(const int16_t* interleaved, size_t frameCount, int channels) {
  const size_t skipped = std::min(toSkip_, frameCount);
  toSkip_ -= skipped;
  addMono(interleaved + skipped * static_cast<size_t>(channels), frameCount - skipped, channels);
  transformFullBlocks();
}

void SpectrumBlocks::addMono(const int16_t* interleaved, size_t frameCount, int channels) {
  const size_t before = waiting_.size();
  waiting_.resize(before + frameCount);
  const float scale = 1.0f / (kFullScale * static_cast<float>(channels));
  for (size_t i = 0; i < frameCount; ++i) {
    int32_t sum = 0;
    for (int channel = 0; channel < channels; ++channel) sum += *interleaved++;
    waiting_[before + i] = static_cast<float>(sum) * scale;
  }
}

void SpectrumBlocks::transformFullBlocks() {
  const auto hop = static_cast<size_t>(setting_.hop);
  size_t from = 0;
  while (from < waiting_.size() && waiting_.size() - from >= block_.size()) {
    transform(from);
    from += hop;
  }
  const size_t gone = std::min(from, waiting_.size());
  toSkip_ += from - gone;
  waiting_.erase(waiting_.begin(), waiting_.begin() + static_cast<ptrdiff_t>(gone));
}

void SpectrumBlocks::transform(size_t from) {
  const size_t count = std::min(block_.size(), waiting_.size() - from);
  std::copy_n(waiting_.begin() + static_cast<ptrdiff_t>(from), count, block_.begin());
  std::fill(block_.begin() + static_cast<ptrdiff_t>(count), block_.end(), 0.0f);
  fft_->forward(block_);
  fft_->linearBands(setting_.minFrequency, setting_.maxFrequency, setting_.numberOfBands);
  const double start = static_cast<double>(blockCount_) * static_cast<double>(setting_.hop) / sampleRate_;
  ++blockCount_;
  if (setting_.eachBlock) {
    setting_.eachBlock(*fft_, start);
  } else {
    gathered_.push_back(fft_->copy());
  }
}

std::vector<std::shared_ptr<TempiFFT>> SpectrumBlocks::finish() {
  const int64_t inBlocksAlready = blockCount_ == 0 ? 0 : std::max<int64_t>(0, setting_.size - setting_.hop);
  if (static_cast<int64_t>(waiting_.size()) > inBlocksAlready) transform(0);
  waiting_.clear();
  return std::move(gathered_);
}

}  // namespace vidloom
