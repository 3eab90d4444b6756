// Decibels of 16-bit samples, limited to a range: the fast form of convert, absolute value, vDSP_vdbcon (flag 1) and vDSP_vclip.
#pragma once

#include <cstddef>
#include <cstdint>

namespace vidloom {

/// 20 log10(|x| / zeroReference) limited to [low, high]. Immutable; any thread.
class ClippedDecibels {
 public:
  /// The amplitude of `low` is above 0.0001.
  ClippedDecibels(float zeroReference, float low, float high);

  /// c[n] = the decibels of samples[n], within 2e-5 dB.
  void ofEach(const int16_t* samples, size_t count, float* c) const;
  /// The sum of the decibels of all samples, within 2e-5 dB a sample. Takes the logarithm of the product of eight samples instead
  /// of eight logarithms.
  double sum(const int16_t* samples, size_t count) const;

 private:
  float low_, high_;
  float lowest_, highest_;  ///< the amplitudes of low and high
  double log2OfReference_;
};

}  // namespace vidloom
