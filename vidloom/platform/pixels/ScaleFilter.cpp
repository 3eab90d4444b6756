#include "vidloom/platform/pixels/ScaleFilter.h"

#include <algorithm>
#include <cmath>

namespace vidloom {

ScaleFilter::ScaleFilter(double scale, double offset, int sourceLength, int first, int count) : sourceLength_(sourceLength) {
  starts_.reserve(count);
  weights_.reserve(count);
  const double step = 1 / scale;
  const double width = std::clamp(step, 1.0, 2.0);
  for (int index = 0; index < count; ++index) {
    addSample((first + index + 0.5 - offset) * step - width / 2, width);
  }
  for (int index = 0; index < count; ++index) {
    const Weights& weights = weights_[index];
    if (weights[0] != kWeightOfAll) taps_ = std::max(taps_, weights[2] != 0 ? 3 : 2);
    isCopy_ = isCopy_ && weights[0] == kWeightOfAll && starts_[index] == starts_[0] + index;
  }
}

void ScaleFilter::addSample(double low, double width) {
  const int last = sourceLength_ - 1;
  const int first = static_cast<int>(std::floor(low));
  const int start = std::clamp(first, 0, last);
  Weights weights{};
  int given = 0;
  for (int sample = first; given < kWeightOfAll; ++sample) {
    const double covered = std::min((sample + 1 - low) / width, 1.0);
    const int upToHere = static_cast<int>(kWeightOfAll * covered + 0.5);
    const int tap = std::min(std::clamp(sample, 0, last) - start, kMaximumTaps - 1);
    weights[tap] = static_cast<uint16_t>(weights[tap] + upToHere - given);
    given = upToHere;
  }
  starts_.push_back(start);
  weights_.push_back(weights);
}

int ScaleFilter::sourceEnd() const { return std::min(starts_.back() + kMaximumTaps, sourceLength_); }

}  // namespace vidloom
