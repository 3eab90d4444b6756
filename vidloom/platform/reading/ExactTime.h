// Times as fractions of any denominator: what lies between the media time of one segment and the frame numbers of an output.
#pragma once

#include "vidloom/platform/coremedia/CMTime.h"
#include "vidloom/platform/reading/WideInteger.h"

namespace vidloom {

/// A number of seconds as an exact fraction. Made of times and counts, and good for sums, differences, products and quotients of a
/// handful of them; nothing is rounded before one asks for ticks.
class ExactTime {
 public:
  ExactTime() = default;
  /// `time` must be numeric.
  explicit ExactTime(const CMTime& time);
  /// `count` things at `perSecond` (above zero) things a second.
  ExactTime(int64_t count, int64_t perSecond);

  friend ExactTime operator+(const ExactTime& a, const ExactTime& b);
  friend ExactTime operator-(const ExactTime& a, const ExactTime& b);
  friend ExactTime operator*(const ExactTime& a, const ExactTime& b);
  /// `b` must be above zero.
  friend ExactTime operator/(const ExactTime& a, const ExactTime& b);
  friend std::strong_ordering operator<=>(const ExactTime& a, const ExactTime& b);
  friend bool operator==(const ExactTime& a, const ExactTime& b) { return (a <=> b) == 0; }

  /// The last tick at or before the time, the first one at or after it, at so many ticks a second.
  int64_t floorTicks(int64_t ticksPerSecond) const;
  int64_t ceilTicks(int64_t ticksPerSecond) const;
  double seconds() const { return numerator_.toDouble() / denominator_.toDouble(); }

 private:
  ExactTime(const WideInteger& numerator, const WideInteger& denominator) : numerator_(numerator), denominator_(denominator) {}
  WideInteger numerator_;
  WideInteger denominator_{1};  ///< above zero
};

}  // namespace vidloom
