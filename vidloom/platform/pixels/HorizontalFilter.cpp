#include "vidloom/platform/pixels/HorizontalFilter.h"

#include <algorithm>

namespace vidloom {
namespace {

constexpr int kBlocksPerVector = 4;

uint8_t pick(int position) { return static_cast<uint8_t>(std::min(position, HorizontalFilter::kWindow - 1)); }

}  // namespace

HorizontalFilter::HorizontalFilter(const ScaleFilter& filter) : count_(filter.count()), taps_(std::max(filter.taps(), 2)) {
  const int samples = kBlock * kBlocksPerVector;
  const int padded = (count_ + samples - 1) / samples * samples;
  windows_.reserve(padded / kBlock);
  picks_.reserve(2 * padded);
  left_.reserve(padded);
  right_.reserve(padded);
  for (int first = 0; first < padded; first += kBlock) addBlock(filter, first);
  for (int first = 0; taps_ == 3 && first < padded; first += kBlock) addThirds(filter, first);
}

void HorizontalFilter::addBlock(const ScaleFilter& filter, int first) {
  const int lastWindow = std::max(0, filter.sourceLength() - kWindow);
  const int window = std::min(filter.start(std::min(first, count_ - 1)), lastWindow);
  windows_.push_back(window);
  for (int sample = first; sample < first + kBlock; ++sample) {
    const int index = std::min(sample, count_ - 1);
    const int left = filter.start(index) - window;
    picks_.push_back(pick(left));
    picks_.push_back(pick(left + 1));
    left_.push_back(filter.weights(index)[0]);
    right_.push_back(filter.weights(index)[1]);
    if (filter.weights(index)[2] != 0 && left + 2 >= kWindow) sharesWindows_ = false;
  }
}

void HorizontalFilter::addThirds(const ScaleFilter& filter, int first) {
  const int lastWindow = std::max(0, filter.sourceLength() - kWindow);
  const int window = std::min(filter.start(std::min(first, count_ - 1)) + 2, lastWindow);
  thirdWindows_.push_back(sharesWindows_ ? windows_[first / kBlock] : window);
  for (int sample = first; sample < first + kBlock; ++sample) {
    const int index = std::min(sample, count_ - 1);
    thirdPicks_.push_back(pick(filter.start(index) + 2 - thirdWindows_.back()));
    thirdPicks_.push_back(kNothing);
    third_.push_back(filter.weights(index)[2]);
  }
}

}  // namespace vidloom
