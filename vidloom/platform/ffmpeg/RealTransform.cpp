#include "vidloom/platform/ffmpeg/RealTransform.h"

#include <cmath>
#include <complex>
#include <new>
#include <numbers>

#include "vidloom/platform/foundation/NSLog.h"

namespace vidloom {
namespace {

constexpr size_t kLongestShort = 32;
// Rows a power of two apart would share a few lines of the cache.
constexpr size_t kRowPaddingFloats = 16;
constexpr size_t kLongestOnStackFloats = 2048;
// What a thread keeps for its next transform; longer ones give back what they take.
constexpr size_t kLongestKeptFloats = size_t{1} << 19;

std::complex<double> unitRoot(size_t index, size_t size) {
  return std::polar(1.0, -2 * std::numbers::pi * static_cast<double>(index) / static_cast<double>(size));
}

/// Calls body with an array of `count` floats, aligned for complex transforms.
template <class Body>
void withScratch(size_t count, Body body) {
  if (count <= kLongestOnStackFloats) {
    alignas(ComplexTransform::kAlignment) float scratch[kLongestOnStackFloats];
    return body(scratch);
  }
  static thread_local AlignedFloats kept;
  try {
    if (count > kLongestKeptFloats) {
      AlignedFloats scratch(count);
      body(scratch.data());
      return;
    }
    if (kept.size() < count) kept = AlignedFloats(count);
  } catch (const std::bad_alloc&) {
    NSLogAndAbort(NSStringWithFormat("Real Fourier transform: no memory for %zu numbers", count));
  }
  body(kept.data());
}

}  // namespace

std::unique_ptr<const RealTransform> RealTransform::make(int log2Size) {
  try {
    std::unique_ptr<RealTransform> transform(new RealTransform(log2Size));
    if (!transform->prepare()) return nullptr;
    return transform;
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

bool RealTransform::prepare() {
  if (size_ == 2) return true;
  const bool isShort = size_ <= kLongestShort;
  const size_t rootCount = isShort ? size_ / 4 : size_ / 16;
  complex_ = ComplexTransform::make(isShort ? size_ / 2 : size_ / 8);
  rootsReal_ = AlignedFloats(rootCount);
  rootsImaginary_ = AlignedFloats(rootCount);
  for (size_t q = 0; q < rootCount; ++q) {
    const std::complex<double> root = unitRoot(q + 1, size_);
    rootsReal_[q] = static_cast<float>(root.real());
    rootsImaginary_[q] = static_cast<float>(root.imag());
  }
  return complex_ != nullptr;
}

template <class Fill>
void RealTransform::run(const PackedSpectrum& spectrum, Fill fill) const {
  const size_t length = size_ / 8, floatsPerRow = 2 * length + kRowPaddingFloats;
  // A fifth row: each transform goes one row down, into the one that has been read already.
  withScratch(5 * floatsPerRow, [&](float* scratch) {
    const QuarterRows in{scratch + floatsPerRow, floatsPerRow, length}, out{scratch, floatsPerRow, length};
    fill(in);
    for (size_t row = 0; row < 4; ++row) complex_->run(in.row(row), out.row(row));
    joinQuarters(out, {rootsReal_.data(), rootsImaginary_.data()}, spectrum);
  });
}

void RealTransform::runSplit(const float* even, const float* odd, const PackedSpectrum& spectrum) const {
  if (size_ > kLongestShort) {
    run(spectrum, [&](const QuarterRows& rows) { quarterSplitNumbers(even, odd, rows); });
    return;
  }
  alignas(ComplexTransform::kAlignment) float samples[kLongestShort];
  for (size_t n = 0; n < size_; ++n) samples[n] = n % 2 ? odd[n / 2] : even[n / 2];
  runShort(samples, spectrum);
}

void RealTransform::runSamples(const float* samples, const float* window, const PackedSpectrum& spectrum) const {
  if (size_ > kLongestShort) {
    run(spectrum, [&](const QuarterRows& rows) { quarterSamples(samples, window, rows); });
    return;
  }
  alignas(ComplexTransform::kAlignment) float weighted[kLongestShort];
  for (size_t n = 0; n < size_; ++n) weighted[n] = window ? samples[n] * window[n] : samples[n];
  runShort(weighted, spectrum);
}

void RealTransform::runShort(float* samples, const PackedSpectrum& spectrum) const {
  using Number = std::complex<float>;
  alignas(ComplexTransform::kAlignment) float floats[kLongestShort] = {samples[0], samples[1]};
  if (complex_) complex_->run(samples, floats);
  const auto put = [&](size_t index, Number number) {
    spectrum.real[index] = number.real();
    spectrum.imaginary[index] = number.imag();
  };
  put(0, {2 * (floats[0] + floats[1]), 2 * (floats[0] - floats[1])});
  const size_t count = size_ / 2;
  for (size_t k = 1; k <= count / 2; ++k) {
    const Number a(floats[2 * k], floats[2 * k + 1]), b(floats[2 * (count - k)], -floats[2 * (count - k) + 1]);
    const float real = rootsReal_.data()[k - 1], imaginary = rootsImaginary_.data()[k - 1];
    const Number even = a + b, odd = a - b;
    const Number product(-odd.real() * imaginary - odd.imag() * real, odd.real() * real - odd.imag() * imaginary);
    put(count - k, {even.real() + product.real(), -even.imag() - product.imag()});
    put(k, even - product);
  }
}

}  // namespace vidloom
