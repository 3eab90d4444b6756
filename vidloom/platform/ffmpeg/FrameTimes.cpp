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

int64_t FrameTimes::commonDivisor() const {
  int64_t divisor = std::gcd(scale_, end_);
  for (const int64_t ticks : ticks_) divisor = std::gcd(divisor, ticks);
  return divisor;
}

void FrameTimes::coarsen(int64_t spanTicks, int64_t maximumTicks) {
  if (spanTicks <= maximumTicks) return;
  const int64_t finest = std::max<int64_t>(static_cast<int64_t>(static_cast<__int128>(scale_) * maximumTicks / spanTicks), 1);
  const int64_t exact = scale_ / commonDivisor();
  roundTo(exact <= finest ? finest / exact * exact : finest);
}

void FrameTimes::roundTo(int64_t scale) {
  int64_t before = -1;
  const auto next = [&](int64_t ticks) {
    const auto rounded = static_cast<int64_t>((2 * static_cast<__int128>(ticks) * scale + scale_) / (2 * scale_));
    return before = std::max(rounded, before + 1);
  };
  for (int64_t& ticks : ticks_) ticks = next(ticks);
  end_ = next(end_);
  scale_ = scale;
}

}  // namespace vidloom
