// A ScaleFilter laid out for the kernels that work along a row.
#pragma once

#include <cstdint>
#include <vector>

#include "vidloom/platform/pixels/ScaleFilter.h"

namespace vidloom {

/// Eight destination samples make a block. Their source samples are picked out of a window of 16: two neighbouring ones per
/// destination sample, and a third one where the filter has three taps; that may come from a window of its own. Tables go on
/// behind the last block for as many as a vector may take more.
class HorizontalFilter {
 public:
  static constexpr int kBlock = 8;
  static constexpr int kWindow = 16;
  static constexpr uint8_t kNothing = 0x80;  ///< among the picks: zero

  explicit HorizontalFilter(const ScaleFilter& filter);

  int count() const { return count_; }
  int taps() const { return taps_; }
  /// The third samples are in the same windows as the first two.
  bool sharesWindows() const { return sharesWindows_; }

  /// Where the windows start: one for every block.
  const int32_t* windows() const { return windows_.data(); }
  const int32_t* thirdWindows() const { return thirdWindows_.data(); }
  /// Which bytes of the window: the left and the right one by turns; the third one and nothing by turns.
  const uint8_t* picks() const { return picks_.data(); }
  const uint8_t* thirdPicks() const { return thirdPicks_.data(); }
  /// One for every destination sample.
  const uint16_t* leftWeights() const { return left_.data(); }
  const uint16_t* rightWeights() const { return right_.data(); }
  const uint16_t* thirdWeights() const { return third_.data(); }

 private:
  void addBlock(const ScaleFilter& filter, int first);
  void addThirds(const ScaleFilter& filter, int first);

  int count_;
  int taps_;
  bool sharesWindows_ = true;
  std::vector<int32_t> windows_, thirdWindows_;
  std::vector<uint8_t> picks_, thirdPicks_;
  std::vector<uint16_t> left_, right_, third_;
};

}  // namespace vidloom
