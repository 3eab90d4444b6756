// The inner loop of varispeed.
#pragma once

namespace vidloom {

/// Filter coefficients: row p of phases + 1 rows of `taps` (a multiple of 16) values belongs to the position p / phases between two
/// source frames; the first tap falls on the frame taps / 2 - 1 before it.
struct VarispeedRows {
  const float* coefficients;
  int taps, phases;
};

/// Writes the sound at positions[i] of the two channels as interleaved stereo. The channels must be readable half the taps beyond
/// every position.
void readVarispeed(const VarispeedRows& rows, const float* left, const float* right, const double* positions, int count,
                   float* interleavedStereo);

}  // namespace vidloom
