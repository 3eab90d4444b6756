// Scales a plane by any factors, a row at a time.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "vidloom/platform/pixels/PlaneView.h"
#include "vidloom/platform/pixels/ScalePlan.h"

namespace vidloom {

/// Bilinear when enlarging, by covered area when reducing. The source, which must have the plan's size, must outlive the scaler.
class PlaneScaler {
 public:
  PlaneScaler(const PlaneView& source, std::shared_ptr<const ScalePlan> plan);

  /// Writes the samples of that row of the plan's destination. Rows are cheapest from top to bottom.
  void row(int y, uint8_t* destination);

 private:
  /// The rows that a destination row is made of, without those of no weight.
  struct RowMix {
    const uint8_t* rows[ScaleFilter::kMaximumTaps];
    uint16_t weights[ScaleFilter::kMaximumTaps];
    int count = 0;
  };

  void scaleAcross(const uint8_t* source, uint8_t* destination);
  void mixInto(int index, uint8_t* destination);
  const uint8_t* mixedRow(int index);
  const uint8_t* scaledRow(int sourceRow);
  RowMix mixOf(int index, const uint8_t* (PlaneScaler::*rowOf)(int));
  const uint8_t* sourceRow(int row) { return source_.row(row); }

  static constexpr int kKeptRows = 4;

  PlaneView source_;
  std::shared_ptr<const ScalePlan> plan_;
  std::vector<uint8_t> mixed_;
  std::vector<uint8_t> narrow_;
  std::vector<uint8_t> kept_[kKeptRows];
  int keptRow_[kKeptRows] = {-1, -1, -1, -1};
};

}  // namespace vidloom
