#include "vidloom/platform/ffmpeg/ComplexTransform.h"

#include <cmath>
#include <new>
#include <numbers>

#include "vidloom/platform/ffmpeg/AlignedFloats.h"

extern "C" {
#include <libavutil/tx.h>
}

namespace vidloom {
namespace {

// The library has fast code up to 2^17; what is longer it would sum up term by term.
constexpr size_t kLongestDirect = size_t{1} << 16;

}  // namespace

std::unique_ptr<const ComplexTransform> ComplexTransform::make(size_t length) {
  try {
    std::unique_ptr<ComplexTransform> transform(new ComplexTransform(length));
    if (!transform->prepare()) return nullptr;
    return transform;
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

ComplexTransform::~ComplexTransform() { av_tx_uninit(&context_); }

bool ComplexTransform::prepare() {
  if (length_ <= kLongestDirect) {
    const float scale = 1;
    return av_tx_init(&context_, &function_, AV_TX_FLOAT_FFT, 0, static_cast<int>(length_), &scale, 0) >= 0;
  }
  half_ = make(length_ / 2);
  if (!half_) return false;
  roots_.resize(length_);
  for (size_t k = 0; k < length_ / 2; ++k) {
    const double angle = -2 * std::numbers::pi * static_cast<double>(k) / static_cast<double>(length_);
    roots_[2 * k] = static_cast<float>(std::cos(angle));
    roots_[2 * k + 1] = static_cast<float>(std::sin(angle));
  }
  return true;
}

void ComplexTransform::run(float* in, float* out) const {
  if (!half_) {
    // Transforms of powers of two from one array to another only read their context, so threads can share it.
    function_(context_, out, in, 2 * sizeof(float));
    return;
  }
  AlignedFloats numbers(length_);
  for (size_t offset = 0; offset < 2; ++offset) {
    for (size_t i = 0; i < length_ / 2; ++i) {
      numbers[2 * i] = in[2 * (2 * i + offset)];
      numbers[2 * i + 1] = in[2 * (2 * i + offset) + 1];
    }
    half_->run(numbers.data(), out + offset * length_);
  }
  joinHalves(out);
}

void ComplexTransform::joinHalves(float* numbers) const {
  float* upper = numbers + length_;
  for (size_t k = 0; k < length_; k += 2) {
    const float real = upper[k] * roots_[k] - upper[k + 1] * roots_[k + 1];
    const float imaginary = upper[k] * roots_[k + 1] + upper[k + 1] * roots_[k];
    upper[k] = numbers[k] - real;
    upper[k + 1] = numbers[k + 1] - imaginary;
    numbers[k] += real;
    numbers[k + 1] += imaginary;
  }
}

}  // namespace vidloom
