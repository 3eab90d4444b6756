// Scales a plane by any factors, a row at a time.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "vidloom/platform/pixels/HorizontalFilter.h"
#include "vidloom/platform/pixels/PlaneView.h"
#include "vidloom/platform/pixels/ScaleFilter.h"

namespace vidloom {

/// Where a plane goes: destination = scale * source + offset on each axis, in continuous coordinates.
struct AxisMap {
  double scaleX = 1, scaleY = 1;
  double offsetX = 0, offsetY = 0;
};

/// A rectangle of samples: x0 <= x < x1, y0 <= y < y1.
struct SampleRect {
  int x0 = 0, y0 = 0, x1 = 0, y1 = 0;

  int width() const { return x1 - x0; }
  int height() const { return y1 - y0; }
  bool isEmpty() const { return x0 >= x1 || y0 >= y1; }
  friend bool operator==(const SampleRect&, const SampleRect&) = default;
};

/// Bilinear when enlarging, by covered area when reducing (each factor at least 0.5). The source must outlive the scaler.
class PlaneScaler {
 public:
  PlaneScaler(const PlaneView& source, const AxisMap& map, const SampleRect& destination);

  /// Writes the destination rectangle's samples of that row. Rows are cheapest from top to bottom.
  void row(int y, uint8_t* destination);

 private:
  void scaleAcross(const uint8_t* source, uint8_t* destination);
  const uint8_t* mixedRow(int index);
  const uint8_t* scaledRow(int sourceRow);

  static constexpr int kKeptRows = ScaleFilter::kMaximumTaps;

  PlaneView source_;
  SampleRect destination_;
  ScaleFilter across_;
  ScaleFilter down_;
  std::optional<HorizontalFilter> horizontal_;
  bool acrossFirst_;
  std::vector<uint8_t> mixed_;
  std::vector<uint8_t> narrow_;
  std::vector<uint8_t> kept_[kKeptRows];
  int keptRow_[kKeptRows] = {-1, -1, -1, -1};
};

}  // namespace vidloom
