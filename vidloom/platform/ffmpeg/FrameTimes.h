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
  static constexpr int64_t maximumScale = 10'000'000;

  /// Numeric times, each after the one before.
  void append(const CMTime& time);
  /// When the last picture ends; at least one tick after it begins.
  void setEnd(const CMTime& time);
  /// Multiplies the timescale by a power of two until it is at least `minimumScale`.
  void refineTo(int64_t minimumScale);
  /// Makes the timescale coarse enough for a span of `spanTicks` to be one of at most `maximumTicks` but for the rounding of its
  /// ends. Every time stays exact where such a timescale exists; else times are rounded and still increase.
  void coarsen(int64_t spanTicks, int64_t maximumTicks);

  size_t count() const { return ticks_.size(); }
  int64_t scale() const { return scale_; }
  int64_t operator[](size_t index) const { return ticks_[index]; }
  int64_t end() const { return end_; }

 private:
  int64_t ticksOf(const CMTime& time);
  void multiply(int64_t factor);
  /// By which all ticks and the timescale can be divided.
  int64_t commonDivisor() const;
  void roundTo(int64_t scale);

  int64_t scale_ = 1;
  std::vector<int64_t> ticks_;
  int64_t end_ = 0;
};

}  // namespace vidloom
