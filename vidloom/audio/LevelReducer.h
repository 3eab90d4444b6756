// From samples to the levels of a waveform.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "vidloom/platform/accelerate/ClippedDecibels.h"

namespace vidloom {

/// Means of groups of samples, in decibels of full scale (32767) that are limited to -50 ... 0. Takes the sound in pieces of any
/// length and keeps nothing of them but the sum of the group that has begun. One thread at a time.
class LevelReducer {
 public:
  explicit LevelReducer(int64_t samplesPerLevel);

  /// Room for that many levels.
  void reserve(int64_t levelCount);
  void append(const int16_t* samples, size_t count);
  /// The levels of the complete groups, 0 (full scale) to 1 (-50 dB or quieter). Takes them out.
  std::vector<float> takeLevels();

 private:
  /// `sumOf(at, part)` is the sum of the decibels of `part` of the samples from number `at` on.
  template <class SumOf>
  void addGroups(size_t count, const SumOf& sumOf);
  void addShortGroups(const int16_t* samples, size_t count);
  void finishGroup();

  const ClippedDecibels decibels_;
  const int64_t samplesPerLevel_;
  const double levelsPerSample_;
  std::vector<float> levels_;
  std::vector<float> each_;  ///< decibels of single samples
  double sum_ = 0;           ///< of the group that has begun
  int64_t inGroup_ = 0;
};

}  // namespace vidloom
