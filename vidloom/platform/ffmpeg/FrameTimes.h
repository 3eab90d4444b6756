// The times of a track's pictures as whole ticks of one timescale.
#pragma once

#include <cstdint>
#include <vector>

#include "vidloom/platform/coremedia/CMTime.h"

namespace vidloom {

/// Starts with the coarsest timescale and refines it as times need it, so that every time stays exact; only where a common
/// timescale would be finer than maximumScale are further times rounded to it.
class FrameTimes {
 public:
  static constexpr int64_t maximumScale = 1'000'000;

  /// Numeric times, each after the one before.
  void append(const CMTime& time);
  /// When the last picture ends; at least one tick after it begins.
  void setEnd(const CMTime& time);
  /// Multiplies the timescale by a power of two until it is at least `minimumScale`.
  void refineTo(int64_t minimumScale);
  /// Makes the timescale as coarse as it takes for no step to be longer than that many ticks. Times are rounded and still increase.
  void limitSteps(int64_t maximumTicks);

  size_t count() const { return ticks_.size(); }
  int64_t scale() const { return scale_; }
  int64_t operator[](size_t index) const { return ticks_[index]; }
  int64_t end() const { return end_; }

 private:
  int64_t ticksOf(const CMTime& time);
  void multiply(int64_t factor);

  int64_t scale_ = 1;
  std::vector<int64_t> ticks_;
  int64_t end_ = 0;
};

}  // namespace vidloom
