// Which source samples make up each sample of a scaled row or column.
#pragma once

#include <array>
#include <cstdint>
#include <vector>

namespace vidloom {

/// The filter of one axis. Positions are continuous: sample i covers i..i+1. Enlarging is bilinear; reducing weighs every source
/// sample by the part of it that the destination sample covers, which meets bilinear at 1:1 and the mean of two at 2:1. Beyond
/// the source's ends its end samples go on.
class ScaleFilter {
 public:
  static constexpr int kMaximumTaps = 3;
  static constexpr int kWeightOfAll = 256;
  using Weights = std::array<uint16_t, kMaximumTaps>;

  /// For destination = scale * source + offset with scale at least 0.5, the destination samples first..first + count - 1 and a
  /// source of sourceLength samples.
  ScaleFilter(double scale, double offset, int sourceLength, int first, int count);

  int count() const { return static_cast<int>(starts_.size()); }
  int sourceLength() const { return sourceLength_; }
  /// How many of the weights may differ from zero: 1 (plain samples, weight 256), 2 or 3.
  int taps() const { return taps_; }
  /// The first source sample of the index-th destination sample: never outside the source, though zero-weighted ones after it
  /// may be.
  int start(int index) const { return starts_[index]; }
  /// Their sum is 256.
  const Weights& weights(int index) const { return weights_[index]; }
  /// True if the samples are those of the source in order, from start(0).
  bool isCopy() const { return isCopy_; }
  /// The range of source samples that are used.
  int sourceBegin() const { return starts_.front(); }
  int sourceEnd() const;

 private:
  void addSample(double low, double width);

  int sourceLength_;
  int taps_ = 1;
  bool isCopy_ = true;
  std::vector<int32_t> starts_;
  std::vector<Weights> weights_;
};

}  // namespace vidloom
