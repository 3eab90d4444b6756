// A ScaleFilter laid out for the kernels that work along a row.
#pragma once

#include <cstdint>
#include <vector>

#include "vidloom/platform/pixels/ScaleFilter.h"

namespace vidloom {

/// Eight destination samples make a block. Their source samples are picked out of a window of 16: two neighbouring ones per
/// destination sample, and a third one where the filter has three taps. Even and odd blocks have tables of their own, since the
/// kernels pack one of each together; the tables go on behind the last block for as many as a vector may take more.
class HorizontalFilter {
 public:
  static constexpr int kBlock = 8;
  static constexpr int kWindow = 16;

  /// Per block a window, and 16 picks and 16 weights (the left and the right sample by turns); the same for the third samples,
  /// whose every second weight is zero.
  struct Table {
    std::vector<int32_t> windows, thirdWindows;
    std::vector<uint8_t> picks, thirdPicks;
    std::vector<uint8_t> weights, thirdWeights;
  };

  explicit HorizontalFilter(const ScaleFilter& filter);

  int count() const { return count_; }
  int taps() const { return taps_; }
  /// The third samples are in the same windows as the first two.
  bool thirdsShareWindows() const { return thirdsShareWindows_; }
  /// Odd blocks have the windows of the even blocks before them.
  bool oddsShareWindows() const { return oddsShareWindows_; }
  const Table& even() const { return tables_[0]; }
  const Table& odd() const { return tables_[1]; }

 private:
  void addBlock(const ScaleFilter& filter, int first, Table& table) const;
  void addThirds(const ScaleFilter& filter, int first, Table& table) const;
  int windowFor(const ScaleFilter& filter, int first) const;
  bool fitsWindow(const ScaleFilter& filter, int first, int window, int taps) const;

  int count_;
  int taps_;
  bool thirdsShareWindows_ = true;
  bool oddsShareWindows_ = true;
  Table tables_[2];
};

}  // namespace vidloom
