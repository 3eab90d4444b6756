#include "vidloom/platform/pixels/HorizontalFilter.h"

#include <algorithm>

namespace vidloom {
namespace {

constexpr int kBlocksPerVector = 4;
constexpr int kHalfWeight = ScaleFilter::kWeightOfAll / 2;

uint8_t pick(int position) { return static_cast<uint8_t>(std::min(position, HorizontalFilter::kWindow - 1)); }

}  // namespace

HorizontalFilter::HorizontalFilter(const ScaleFilter& filter) : count_(filter.count()), taps_(std::max(filter.taps(), 2)) {
  const int samples = 2 * kBlock * kBlocksPerVector;
  const int padded = (count_ + samples - 1) / samples * samples;
  for (int first = 0; first < padded; first += kBlock) {
    thirdsShareWindows_ = thirdsShareWindows_ && fitsWindow(filter, first, windowFor(filter, first), taps_);
    if (first % (2 * kBlock) == 0) continue;
    oddsShareWindows_ = oddsShareWindows_ && fitsWindow(filter, first, windowFor(filter, first - kBlock), taps_);
  }
  for (Table& table : tables_) {
    table.windows.reserve(padded / (2 * kBlock));
    table.picks.reserve(padded);
    table.weights.reserve(padded);
  }
  for (int first = 0; first < padded; first += kBlock) {
    Table& table = tables_[first / kBlock % 2];
    const bool shares = oddsShareWindows_ && &table == &tables_[1];
    table.windows.push_back(windowFor(filter, shares ? first - kBlock : first));
    addBlock(filter, first, table);
    if (taps_ == 3) addThirds(filter, first, table);
  }
}

int HorizontalFilter::windowFor(const ScaleFilter& filter, int first) const {
  return std::min(filter.start(std::min(first, count_ - 1)), std::max(0, filter.sourceLength() - kWindow));
}

bool HorizontalFilter::fitsWindow(const ScaleFilter& filter, int first, int window, int taps) const {
  const int last = filter.start(std::min(first + kBlock, count_) - 1);
  return std::min(last + taps, filter.sourceLength()) <= window + kWindow;
}

// A weight of all, which no byte holds, is given to one sample in two halves.
void HorizontalFilter::addBlock(const ScaleFilter& filter, int first, Table& table) const {
  for (int sample = first; sample < first + kBlock; ++sample) {
    const int index = std::min(sample, count_ - 1);
    const int left = filter.start(index) - table.windows.back();
    const ScaleFilter::Weights& weights = filter.weights(index);
    const auto whole = std::find(weights.begin(), weights.end(), ScaleFilter::kWeightOfAll);
    const int only = static_cast<int>(whole - weights.begin());
    const bool isOne = whole != weights.end() && only < 2;
    table.picks.push_back(pick(isOne ? left + only : left));
    table.picks.push_back(pick(isOne ? left + only : left + 1));
    table.weights.push_back(static_cast<uint8_t>(isOne ? kHalfWeight : weights[0]));
    table.weights.push_back(static_cast<uint8_t>(isOne ? kHalfWeight : weights[1]));
  }
}

void HorizontalFilter::addThirds(const ScaleFilter& filter, int first, Table& table) const {
  const int lastWindow = std::max(0, filter.sourceLength() - kWindow);
  const int own = std::min(filter.start(std::min(first, count_ - 1)) + 2, lastWindow);
  table.thirdWindows.push_back(thirdsShareWindows_ ? table.windows.back() : own);
  for (int sample = first; sample < first + kBlock; ++sample) {
    const int index = std::min(sample, count_ - 1);
    table.thirdPicks.push_back(pick(filter.start(index) + 2 - table.thirdWindows.back()));
    table.thirdPicks.push_back(table.thirdPicks.back());
    table.thirdWeights.push_back(static_cast<uint8_t>(filter.weights(index)[2]));
    table.thirdWeights.push_back(0);
  }
}

}  // namespace vidloom
