// A ScaleFilter laid out for the kernels that work along a row.
#pragma once

#include <cstdint>
#include <vector>

#include "vidloom/platform/pixels/ScaleFilter.h"

namespace vidloom {

/// Eight destination samples make a block. A block has one or two passes, each of which takes two neighbouring source samples per
/// destination sample out of a window of 16 source samples: where the window starts, which bytes of it to take (left and right
/// by turns) and the weights of the left and of the right ones.
class HorizontalFilter {
 public:
  static constexpr int kBlock = 8;
  static constexpr int kWindow = 16;

  explicit HorizontalFilter(const ScaleFilter& filter);

  int count() const { return count_; }
  int passes() const { return passes_; }
  /// Per pass: a start for every block, 16 bytes for every block, eight weights for every block. As many blocks follow the last
  /// one as a vector may take more.
  const int32_t* windows(int pass) const { return windows_[pass].data(); }
  const uint8_t* picks(int pass) const { return picks_[pass].data(); }
  const uint16_t* leftWeights(int pass) const { return left_[pass].data(); }
  const uint16_t* rightWeights(int pass) const { return right_[pass].data(); }

 private:
  void addBlock(const ScaleFilter& filter, int pass, int first);

  int count_;
  int passes_;
  std::vector<int32_t> windows_[2];
  std::vector<uint8_t> picks_[2];
  std::vector<uint16_t> left_[2], right_[2];
};

}  // namespace vidloom
