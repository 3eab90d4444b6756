// The inner loops of affine sampling.
#pragma once

#include <cstddef>
#include <cstdint>

namespace vidloom {

/// pairs[i] = row[i] + 256 * below[i].
void pairRows(uint16_t* pairs, const uint8_t* row, const uint8_t* below, int count);

/// A plane as pairs of a sample and the one below it, so that four neighbours are one 32-bit read. The last row is paired with
/// itself and every row has one more pair, equal to its last one.
struct PairedPlane {
  const uint16_t* pairs = nullptr;
  int pairStride = 0;  ///< in pairs
  int width = 0, height = 0;
};

/// A position in 1/65536 samples; (0, 0) is the first sample's centre.
struct FixedPoint {
  int32_t u = 0, v = 0;
};

/// Bilinear samples at start, start + step, ...; positions outside take the nearest of the plane.
void sampleAlong(uint8_t* destination, int count, const PairedPlane& plane, FixedPoint start, FixedPoint step);

}  // namespace vidloom
