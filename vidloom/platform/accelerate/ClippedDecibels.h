// Decibels of 16-bit samples, limited to a range: the fast form of convert, absolute value, vDSP_vdbcon (flag 1) and vDSP_vclip.
#pragma once

#include <cstddef>
#include <cstdint>

namespace vidloom {

/// 20 log10(|x| / zeroReference) limited to [low, high]; high is 1 to 90 dB above low. Immutable; any thread.
class ClippedDecibels {
 public:
  ClippedDecibels(float zeroReference, float low, float high);

  float low() const { return low_; }
  float high() const { return high_; }
  /// c[n] = the decibels of samples[n], within 2e-5 dB.
  void ofEach(const int16_t* samples, size_t count, float* c) const;
  /// The sum, over all samples, of their decibels above low(): within 2e-5 dB a sample, and exactly 0 for silence. Takes the
  /// logarithm of the product of eight samples at a time instead of eight logarithms.
  double sumAboveLow(const int16_t* samples, size_t count) const;

 private:
  float low_, high_;
  float perUnit_;  ///< turns a sample into an amplitude relative to that of low
  float highest_;  ///< the relative amplitude of high
};

}  // namespace vidloom
