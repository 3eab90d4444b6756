// The real Fourier transform of one size.
#pragma once

#include <memory>

#include "vidloom/platform/ffmpeg/AlignedFloats.h"
#include "vidloom/platform/ffmpeg/ComplexTransform.h"
#include "vidloom/platform/ffmpeg/RealTransformKernels.h"

namespace vidloom {

/// The forward transform of 2^log2Size real samples: twice the sum of x[n] exp(-2 pi i k n / size) for k = 0 ... size / 2 - 1. The
/// imaginary part of number 0 is that of k = size / 2 instead. Immutable: any number of threads may transform at a time.
class RealTransform {
 public:
  /// For log2Size from 1 on. Null where memory has run out.
  static std::unique_ptr<const RealTransform> make(int log2Size);

  /// From x[2n] and x[2n + 1] in two arrays, which may be the spectrum's.
  void runSplit(const float* even, const float* odd, const PackedSpectrum& spectrum) const;
  /// From size samples x[n], each multiplied by its place in `window`, where there is one.
  void runSamples(const float* samples, const float* window, const PackedSpectrum& spectrum) const;

 private:
  explicit RealTransform(int log2Size) : size_(size_t{1} << log2Size) {}
  bool prepare();
  void runShort(float* samples, const PackedSpectrum& spectrum) const;
  template <class Fill>
  void run(const PackedSpectrum& spectrum, Fill fill) const;

  const size_t size_;
  std::unique_ptr<const ComplexTransform> complex_;  ///< of a quarter of the numbers; of all for short sizes; null for size 2
  AlignedFloats rootsReal_, rootsImaginary_;
};

}  // namespace vidloom
