#include "vidloom/platform/pixels/HorizontalFilter.h"

#include <algorithm>

namespace vidloom {
namespace {
constexpr int kBlocksPerVector = 4;
}

HorizontalFilter::HorizontalFilter(const ScaleFilter& filter) : count_(filter.count()), passes_(filter.taps() > 2 ? 2 : 1) {
  const int samples = kBlock * kBlocksPerVector;
  const int padded = (count_ + samples - 1) / samples * samples;
  for (int pass = 0; pass < passes_; ++pass) {
    windows_[pass].reserve(padded / kBlock);
    picks_[pass].reserve(2 * padded);
    left_[pass].reserve(padded);
    right_[pass].reserve(padded);
    for (int first = 0; first < padded; first += kBlock) addBlock(filter, pass, first);
  }
}

void HorizontalFilter::addBlock(const ScaleFilter& filter, int pass, int first) {
  const int lastWindow = std::max(0, filter.sourceLength() - kWindow);
  const int window = std::min(filter.start(std::min(first, count_ - 1)) + 2 * pass, lastWindow);
  windows_[pass].push_back(window);
  for (int sample = first; sample < first + kBlock; ++sample) {
    const int index = std::min(sample, count_ - 1);
    const int left = filter.start(index) + 2 * pass - window;
    picks_[pass].push_back(static_cast<uint8_t>(std::min(left, kWindow - 1)));
    picks_[pass].push_back(static_cast<uint8_t>(std::min(left + 1, kWindow - 1)));
    left_[pass].push_back(filter.weights(index)[2 * pass]);
    right_[pass].push_back(filter.weights(index)[2 * pass + 1]);
  }
}

}  // namespace vidloom
