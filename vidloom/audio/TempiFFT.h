// The power spectrum of a block of sound.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include "vidloom/platform/accelerate/vDSP_fft.h"

namespace vidloom {

enum class TempiFFTWindowType : int64_t { none = 0, hanning = 1, hamming = 2 };

/// Transforms blocks of `size` samples, one after the other, and averages the powers into bands of equal width. Powers are those of
/// the packed transform, which is twice the discrete Fourier transform: nothing is scaled down. A sine of amplitude 1 at the middle
/// of a bin has the power (sum of the window's values)^2, which is size^2 without a window. Bin 0 holds the squares of the constant
/// part and of half the sampling rate together.
/// Wrong arguments are programming errors and stop the program with a line that names the operation and the argument. One thread
/// at a time.
class TempiFFT {
 public:
  /// Stops the program where size is not a power of two, below 2 or above 2^24. `sampleRate` in Hz.
  static std::shared_ptr<TempiFFT> init(int64_t size, float sampleRate);
  /// Not available: stops the program.
  [[noreturn]] static std::shared_ptr<TempiFFT> init();
  ~TempiFFT();
  TempiFFT(const TempiFFT&) = delete;
  TempiFFT& operator=(const TempiFFT&) = delete;
  /// The same results in an object of its own. Shares the transform's tables.
  std::shared_ptr<TempiFFT> copy() const;

  int64_t size() const { return size_; }
  float sampleRate() const { return sampleRate_; }
  int64_t halfSize() const { return halfSize_; }
  int64_t log2Size() const { return log2Size_; }
  float nyquistFrequency() const { return sampleRate_ * 0.5f; }
  /// The width of a bin in Hz; infinite before the first transform.
  float bandwidth() const { return nyquistFrequency() / static_cast<float>(magnitudes_.size()); }

  TempiFFTWindowType windowType() const { return windowType_; }
  /// Takes effect with the first transform that uses a window: the window is made then and stays.
  void setWindowType(TempiFFTWindowType windowType) { windowType_ = windowType; }
  /// Empty until the first transform that uses it.
  const std::vector<float>& window() const { return window_; }

  /// Fills magnitudes(). Samples beyond `size` are left out; fewer stop the program, with a window any other number does.
  void forward(const std::vector<float>& samples);
  bool hasPerformedFFT() const { return hasPerformedFFT_; }
  /// The powers of the last transform, halfSize() of them; empty before.
  const std::vector<float>& magnitudes() const { return magnitudes_; }
  /// The packed spectrum of the last transform, halfSize() numbers; zeros before. Belongs to this object.
  const DSPSplitComplex& complexBuffer() const { return complexBuffer_; }
  const FFTSetup& fftSetup() const { return fftSetup_; }

  /// Averages the bins from minFrequency to maxFrequency (Hz; not above half the sampling rate) into that many bands of equal
  /// width; a band narrower than a bin takes the power of the bin where it begins. Stops the program before the first transform,
  /// for a negative number of bands and for frequencies without bins.
  void linearBands(float minFrequency, float maxFrequency, int64_t numberOfBands);
  int64_t numberOfBands() const { return numberOfBands_; }
  /// Mean powers; absent until bands were computed.
  const std::optional<std::vector<float>>& bandMagnitudes() const { return bandMagnitudes_; }
  /// Centre frequencies in Hz; absent until bands were computed.
  const std::optional<std::vector<float>>& bandFrequencies() const { return bandFrequencies_; }
  /// The centre frequencies of the first and of the last band; absent without bands.
  const std::optional<float>& bandMinFreq() const { return bandMinFreq_; }
  const std::optional<float>& bandMaxFreq() const { return bandMaxFreq_; }
  float magnitudeAtBand(int64_t index) const;
  float frequencyAtBand(int64_t index) const;
  /// The power of the bin that the frequency falls into.
  float magnitudeAtFrequency(float frequencyHz) const;

  /// 10 log10 of the power, which counts as 1e-12 (-120 dB) where it is less.
  static float toDecibels(float power);

 protected:
  TempiFFT() = default;

 private:
  int64_t size_ = 0;
  float sampleRate_ = 0;
  std::vector<float> magnitudes_;
  std::optional<std::vector<float>> bandMagnitudes_, bandFrequencies_;
  int64_t numberOfBands_ = 0;
  std::optional<float> bandMinFreq_, bandMaxFreq_;
  TempiFFTWindowType windowType_ = TempiFFTWindowType::none;
  int64_t halfSize_ = 0, log2Size_ = 0;
  std::vector<float> window_;
  FFTSetup fftSetup_;
  bool hasPerformedFFT_ = false;
  DSPSplitComplex complexBuffer_;
  std::vector<float> real_, imaginary_;  ///< behind complexBuffer_
};

}  // namespace vidloom
