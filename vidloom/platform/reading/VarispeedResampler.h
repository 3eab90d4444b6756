// Reads sound between its samples, at any speed.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <vector>

namespace vidloom {

/// Windowed-sinc interpolation of stereo sound at arbitrary positions, without delay. What lies above the output's own band, when
/// the sound is read faster than it is played, is filtered out first. The output depends on the samples, positions and speed alone.
class VarispeedResampler {
 public:
  /// How many source frames on either side of a position take part at that speed (source frames per output frame).
  int reach(double speed) const;
  /// Writes `count` interleaved stereo frames, the sound at positions[i] of the source channels. Those must hold reach(speed)
  /// frames beyond the first and the last position. `speed` is the greatest one between any two positions.
  void read(const float* left, const float* right, const double* positions, int count, double speed, float* interleavedStereo);

 private:
  /// Filter coefficients for a number of fractions of a source frame; the first and the last row differ by one whole frame.
  struct Bank {
    int taps, phases;
    std::vector<float> rows;
  };
  const Bank& bankFor(double speed);
  static int bankNumber(double speed);
  static double bankSpeed(int number);
  static Bank makeBank(double speed);

  std::map<int, Bank> banks_;
};

}  // namespace vidloom
