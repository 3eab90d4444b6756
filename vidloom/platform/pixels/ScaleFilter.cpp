#include "vidloom/platform/pixels/ScaleFilter.h"

#include <algorithm>
#include <cmath>

namespace vidloom {

ScaleFilter::ScaleFilter(double scale, double offset, int sourceLength, int first, int count) : sourceLength_(sourceLength) {
  starts_.reserve(count);
  weights_.reserve(count);
  const double step = 1 / scale;
  const double reach = std::clamp(step, 1.0, 2.0) / 2;
  for (int index = 0; index < count; ++index) {
    const double center = (first + index + 0.5 - offset) * step;
    addSample(center - reach, center + reach);
  }
  for (int index = 0; index < count; ++index) {
    const Weights& weights = weights_[index];
    if (weights[0] != 256) taps_ = std::max(taps_, weights[2] || weights[3] ? 4 : 2);
    isCopy_ = isCopy_ && weights[0] == 256 && starts_[index] == starts_[0] + index;
  }
}

void ScaleFilter::addSample(double low, double high) {
  const double first = std::floor(low);
  const auto clamped = [this](double position) { return static_cast<int>(std::clamp(position, 0.0, sourceLength_ - 1.0)); };
  const int start = clamped(first);
  Weights weights{};
  int given = 0;
  for (double sample = first; sample < high; ++sample) {
    const double covered = (std::min(high, sample + 1) - low) / (high - low);
    const int upToHere = static_cast<int>(std::lround(256 * covered));
    const int tap = std::min(clamped(sample) - start, kMaximumTaps - 1);
    weights[tap] = static_cast<uint16_t>(weights[tap] + upToHere - given);
    given = upToHere;
  }
  starts_.push_back(start);
  weights_.push_back(weights);
}

int ScaleFilter::sourceEnd() const { return std::min(starts_.back() + kMaximumTaps, sourceLength_); }

}  // namespace vidloom
