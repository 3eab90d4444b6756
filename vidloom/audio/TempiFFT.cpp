#include "vidloom/audio/TempiFFT.h"

#include <algorithm>
#include <cmath>
#include <exception>
#include <string>

#include "vidloom/platform/foundation/NSLog.h"

namespace vidloom {
namespace {

/// The number without its fraction; stops the program where that is no index.
int64_t truncated(float number, const std::string& operation, const char* what) {
  constexpr float kBeyondIntegers = 9223372036854775808.0f;
  if (!(std::fabs(number) < kBeyondIntegers)) {
    NSLogAndAbort(operation + NSStringWithFormat(": %s is %g, which is no bin", what, static_cast<double>(number)));
  }
  return static_cast<int64_t>(number);
}

float elementAt(const std::vector<float>& values, int64_t index, const std::string& operation, const char* what) {
  if (index < 0 || index >= static_cast<int64_t>(values.size())) {
    NSLogAndAbort(operation + NSStringWithFormat(": %s %lld is outside of the %zu there are", what, static_cast<long long>(index),
                                                 values.size()));
  }
  return values[static_cast<size_t>(index)];
}

std::vector<float> zeros(int64_t count, const char* operation) {
  try {
    return std::vector<float>(static_cast<size_t>(count));
  } catch (const std::exception&) {
    NSLogAndAbort(NSStringWithFormat("TempiFFT %s: no memory for %lld values", operation, static_cast<long long>(count)));
  }
}

}  // namespace

std::shared_ptr<TempiFFT> TempiFFT::init(int64_t size, float sampleRate) {
  const auto fail = [&](const char* why) {
    NSLogAndAbort(NSStringWithFormat("TempiFFT init: size %lld %s", static_cast<long long>(size), why));
  };
  if (size < 2) fail("is below 2");
  if ((size & (size - 1)) != 0) fail("is not a power of two");
  struct Made : TempiFFT {};
  auto fft = std::make_shared<Made>();
  fft->size_ = size;
  fft->sampleRate_ = sampleRate;
  fft->halfSize_ = size / 2;
  fft->log2Size_ = static_cast<int64_t>(std::log2(static_cast<float>(size)));
  fft->fftSetup_ = vDSP_create_fftsetup(static_cast<vDSP_Length>(fft->log2Size_), kFFTRadix2);
  if (!fft->fftSetup_) fail("has no transform: it is above 16777216 or memory has run out");
  fft->real_ = zeros(fft->halfSize_, "init");
  fft->imaginary_ = zeros(fft->halfSize_, "init");
  fft->complexBuffer_ = {fft->real_.data(), fft->imaginary_.data()};
  return fft;
}

std::shared_ptr<TempiFFT> TempiFFT::init() { NSLogAndAbort("TempiFFT init: needs a size and a sample rate"); }

TempiFFT::~TempiFFT() { vDSP_destroy_fftsetup(fftSetup_); }

std::shared_ptr<TempiFFT> TempiFFT::copy() const {
  struct Made : TempiFFT {};
  auto fft = std::make_shared<Made>();
  fft->size_ = size_;
  fft->sampleRate_ = sampleRate_;
  fft->magnitudes_ = magnitudes_;
  fft->bandMagnitudes_ = bandMagnitudes_;
  fft->bandFrequencies_ = bandFrequencies_;
  fft->numberOfBands_ = numberOfBands_;
  fft->bandMinFreq_ = bandMinFreq_;
  fft->bandMaxFreq_ = bandMaxFreq_;
  fft->windowType_ = windowType_;
  fft->halfSize_ = halfSize_;
  fft->log2Size_ = log2Size_;
  fft->window_ = window_;
  fft->fftSetup_ = fftSetup_;
  fft->hasPerformedFFT_ = hasPerformedFFT_;
  fft->real_ = real_;
  fft->imaginary_ = imaginary_;
  fft->complexBuffer_ = {fft->real_.data(), fft->imaginary_.data()};
  return fft;
}

void TempiFFT::forward(const std::vector<float>& samples) {
  const auto size = static_cast<size_t>(size_);
  const bool windowed = windowType_ != TempiFFTWindowType::none;
  if (samples.size() < size || (windowed && samples.size() != size)) {
    NSLogAndAbort(NSStringWithFormat("TempiFFT forward: samples has %zu values, the size is %zu%s", samples.size(), size,
                                     windowed ? ", which the window has" : ""));
  }
  if (windowed && window_.empty()) {
    window_ = zeros(size_, "forward");
    if (windowType_ == TempiFFTWindowType::hanning) vDSP_hann_window(window_.data(), size, vDSP_HANN_NORM);
    if (windowType_ == TempiFFTWindowType::hamming) vDSP_hamm_window(window_.data(), size, 0);
  }
  if (magnitudes_.empty()) magnitudes_ = zeros(halfSize_, "forward");
  packedSpectrumOfSamples(fftSetup_, samples.data(), windowed ? window_.data() : nullptr, static_cast<vDSP_Length>(log2Size_),
                          complexBuffer_, magnitudes_.data());
  hasPerformedFFT_ = true;
}

void TempiFFT::linearBands(float minFrequency, float maxFrequency, int64_t numberOfBands) {
  const std::string operation = "TempiFFT linearBands";
  if (numberOfBands < 0) {
    NSLogAndAbort(operation + NSStringWithFormat(": numberOfBands is %lld", static_cast<long long>(numberOfBands)));
  }
  const float nyquist = nyquistFrequency(), bins = static_cast<float>(magnitudes_.size());
  const float highest = std::min(maxFrequency, nyquist);
  numberOfBands_ = numberOfBands;
  std::vector<float>& magnitudes = bandMagnitudes_.emplace(zeros(numberOfBands, "linearBands"));
  std::vector<float>& frequencies = bandFrequencies_.emplace(zeros(numberOfBands, "linearBands"));
  const int64_t lower = truncated(bins * minFrequency / nyquist, operation, "minFrequency");
  const int64_t upper = truncated(bins * highest / nyquist, operation, "maxFrequency");
  bandMinFreq_ = bandMaxFreq_ = std::nullopt;
  if (numberOfBands == 0) return;
  elementAt(magnitudes_, lower, operation, "bin");
  const float ratio = static_cast<float>(upper - lower) / static_cast<float>(numberOfBands);
  for (int64_t band = 0; band < numberOfBands; ++band) {
    const int64_t start = truncated(ratio * static_cast<float>(band), operation, "band") + lower;
    const int64_t end = truncated(ratio * static_cast<float>(band + 1), operation, "band") + lower;
    float& magnitude = magnitudes[static_cast<size_t>(band)];
    magnitude = elementAt(magnitudes_, start, operation, "bin");
    if (end < start) NSLogAndAbort(operation + ": maxFrequency is below minFrequency");
    if (end != start) {
      elementAt(magnitudes_, end - 1, operation, "bin");
      vDSP_meanv(magnitudes_.data() + start, 1, &magnitude, static_cast<vDSP_Length>(end - start));
    }
    frequencies[static_cast<size_t>(band)] =
        (bandwidth() * static_cast<float>(start) + bandwidth() * static_cast<float>(end)) * 0.5f;
  }
  bandMinFreq_ = frequencies.front();
  bandMaxFreq_ = frequencies.back();
}

float TempiFFT::magnitudeAtBand(int64_t index) const {
  static const std::vector<float> kNone;
  return elementAt(bandMagnitudes_ ? *bandMagnitudes_ : kNone, index, "TempiFFT magnitudeAtBand", "band");
}

float TempiFFT::frequencyAtBand(int64_t index) const {
  static const std::vector<float> kNone;
  return elementAt(bandFrequencies_ ? *bandFrequencies_ : kNone, index, "TempiFFT frequencyAtBand", "band");
}

float TempiFFT::magnitudeAtFrequency(float frequencyHz) const {
  const std::string operation = "TempiFFT magnitudeAtFrequency";
  return elementAt(magnitudes_, truncated(std::floor(frequencyHz / bandwidth()), operation, "frequency"), operation, "bin");
}

float TempiFFT::toDecibels(float power) { return 10 * std::log10(std::max(power, 1e-12f)); }

}  // namespace vidloom
