// The passes before and after the complex transforms that a real one is made of.
#pragma once

#include <cstddef>

namespace vidloom {

/// Four rows, aligned to 64 bytes, of complex numbers, real and imaginary parts in turn; `length` numbers in a row, a power of two
/// from 8 on. Row r of 4 length numbers z holds z[4n + r].
struct QuarterRows {
  float* row(size_t index) const { return floats + index * floatsPerRow; }
  float* floats;
  size_t floatsPerRow, length;
};

/// exp(-2 pi i q / (8 length)) for q = 1 ... length / 2 in places q - 1.
struct QuarterRoots {
  const float *real, *imaginary;
};

struct PackedSpectrum {
  float *real, *imaginary;
};

/// Fills the rows with the numbers whose parts stand in two arrays.
void quarterSplitNumbers(const float* real, const float* imaginary, const QuarterRows& rows);
/// Fills the rows with the numbers whose parts stand in turn in one array, each part multiplied by its place in `window` (may be
/// null).
void quarterSamples(const float* samples, const float* window, const QuarterRows& rows);
/// Makes twice the packed spectrum of 8 length real samples from the transforms of the rows.
void joinQuarters(const QuarterRows& rows, const QuarterRoots& roots, const PackedSpectrum& spectrum);

}  // namespace vidloom
