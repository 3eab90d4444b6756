// The inner loops of scaling.
#pragma once

#include <cstddef>
#include <cstdint>

namespace vidloom {

class HorizontalFilter;

/// destination = (sum of rows[i] * weights[i] + 128) / 256 over `taps` (1..3) rows; every weight is above zero and their
/// sum is 256.
void mixRows(uint8_t* destination, const uint8_t* const* rows, const uint16_t* weights, int taps, int count);

/// Filters a row into filter.count() samples. All of the row's samples may be read, and 16 even where it has fewer.
void scaleRow(uint8_t* destination, const uint8_t* row, const HorizontalFilter& filter);

/// destination = mean of two neighbouring samples, rounded up: `count` of them.
void halveRow(uint8_t* destination, const uint8_t* row, int count);

/// destination = mean of 2 x 2 samples, rounded: `count` of them.
void halveRows(uint8_t* destination, const uint8_t* row, const uint8_t* below, int count);

}  // namespace vidloom
