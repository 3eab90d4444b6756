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
  void scaleAcross(const uint8_t* source, uint8_t* destination);
  void mixInto(int index, uint8_t* destination);
  const uint8_t* mixedRow(int index);
  const uint8_t* scaledRow(int sourceRow);
  int sourceRows(int index, const uint8_t** rows, uint16_t* weights) const;

  static constexpr int kKeptRows = 4;

  PlaneView source_;
  std::shared_ptr<const ScalePlan> plan_;
  std::vector<uint8_t> mixed_;
  std::vector<uint8_t> narrow_;
  std::vector<uint8_t> kept_[kKeptRows];
  int keptRow_[kKeptRows] = {-1, -1, -1, -1};
};

}  // namespace vidloom
