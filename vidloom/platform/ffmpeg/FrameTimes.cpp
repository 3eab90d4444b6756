#include "vidloom/platform/ffmpeg/FrameTimes.h"

#include <algorithm>
#include <numeric>

namespace vidloom {

int64_t FrameTimes::ticksOf(const CMTime& time) {
  const int64_t step = std::gcd(time.value, static_cast<int64_t>(time.timescale));
  const int64_t needed = time.timescale / std::max<int64_t>(step, 1);
  const int64_t common = std::lcm(scale_, needed);
  multiply(common <= maximumScale ? common / scale_ : std::max<int64_t>(maximumScale / scale_, 1));
  const __int128 scaled = static_cast<__int128>(time.value) * scale_;
  return static_cast<int64_t>((2 * scaled + time.timescale) / (2 * static_cast<__int128>(time.timescale)));
}

void FrameTimes::multiply(int64_t factor) {
  if (factor == 1) return;
  scale_ *= factor;
  end_ *= factor;
  for (int64_t& ticks : ticks_) ticks *= factor;
}

void FrameTimes::append(const CMTime& time) {
  const int64_t ticks = ticksOf(time);
  ticks_.push_back(ticks_.empty() ? ticks : std::max(ticks, ticks_.back() + 1));
}

void FrameTimes::setEnd(const CMTime& time) {
  const int64_t ticks = ticksOf(time);
  end_ = std::max(ticks, ticks_.empty() ? 0 : ticks_.back() + 1);
}

void FrameTimes::refineTo(int64_t minimumScale) {
  int64_t factor = 1;
  while (scale_ * factor < minimumScale) factor *= 2;
  multiply(factor);
}

void FrameTimes::limitSteps(int64_t maximumTicks) {
  int64_t longest = ticks_.empty() ? 0 : end_ - ticks_.back();
  for (size_t i = 1; i < ticks_.size(); ++i) longest = std::max(longest, ticks_[i] - ticks_[i - 1]);
  if (longest <= maximumTicks) return;
  const int64_t coarse = std::max<int64_t>(static_cast<int64_t>(static_cast<__int128>(scale_) * maximumTicks / longest), 1);
  const auto rounded = [&](int64_t ticks) {
    return static_cast<int64_t>((2 * static_cast<__int128>(ticks) * coarse + scale_) / (2 * scale_));
  };
  int64_t before = -1;
  for (int64_t& ticks : ticks_) before = ticks = std::max(rounded(ticks), before + 1);
  end_ = std::max(rounded(end_), before + 1);
  scale_ = coarse;
}

}  // namespace vidloom
