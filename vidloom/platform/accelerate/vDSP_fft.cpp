#include "vidloom/platform/accelerate/vDSP_fft.h"

#include <array>
#include <mutex>
#include <new>
#include <vector>

#include "vidloom/platform/ffmpeg/RealTransform.h"
#include "vidloom/platform/foundation/NSLog.h"

namespace vidloom {
namespace {

constexpr vDSP_Length kLargestLog2 = 24;

}  // namespace

/// The largest size is made with the setup, the others when they are first asked for.
class OpaqueFFTSetup {
 public:
  explicit OpaqueFFTSetup(vDSP_Length log2n)
      : largest_(log2n), largestTransform_(log2n == 0 ? nullptr : RealTransform::make(static_cast<int>(log2n))) {}
  vDSP_Length largest() const { return largest_; }

  /// Null where memory has run out.
  const RealTransform* transform(vDSP_Length log2n) const {
    if (log2n == largest_) return largestTransform_.get();
    Size& size = smaller_[log2n];
    std::call_once(size.made, [&] { size.transform = RealTransform::make(static_cast<int>(log2n)); });
    return size.transform.get();
  }

 private:
  struct Size {
    std::once_flag made;
    std::unique_ptr<const RealTransform> transform;
  };
  const vDSP_Length largest_;
  const std::unique_ptr<const RealTransform> largestTransform_;
  mutable std::array<Size, kLargestLog2> smaller_;
};

namespace {

const RealTransform& transformFor(const char* operation, const FFTSetup& setup, vDSP_Length log2n) {
  if (!setup) NSLogAndAbort(NSStringWithFormat("%s: the setup is null", operation));
  if (log2n < 1 || log2n > setup->largest()) {
    NSLogAndAbort(NSStringWithFormat("%s: log2n is %zu, the setup has sizes from 1 to %zu", operation, log2n, setup->largest()));
  }
  const RealTransform* transform = setup->transform(log2n);
  if (!transform) NSLogAndAbort(NSStringWithFormat("%s: no memory for the tables of log2n %zu", operation, log2n));
  return *transform;
}

void transformStrided(const RealTransform& transform, const DSPSplitComplex& c, vDSP_Stride stride, vDSP_Stride count) {
  std::vector<float> real(count), imaginary(count);
  for (vDSP_Stride n = 0; n < count; ++n) {
    real[n] = c.realp[n * stride];
    imaginary[n] = c.imagp[n * stride];
  }
  transform.runSplit(real.data(), imaginary.data(), {real.data(), imaginary.data()});
  for (vDSP_Stride n = 0; n < count; ++n) {
    c.realp[n * stride] = real[n];
    c.imagp[n * stride] = imaginary[n];
  }
}

}  // namespace

FFTSetup vDSP_create_fftsetup(vDSP_Length log2n, FFTRadix radix) {
  if (log2n > kLargestLog2 || radix != kFFTRadix2) return nullptr;
  try {
    auto setup = std::make_shared<const OpaqueFFTSetup>(log2n);
    return log2n == 0 || setup->transform(log2n) ? setup : nullptr;
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

void vDSP_destroy_fftsetup(FFTSetup& setup) { setup.reset(); }

void vDSP_fft_zrip(const FFTSetup& setup, const DSPSplitComplex* c, vDSP_Stride stride, vDSP_Length log2n, FFTDirection direction) {
  const RealTransform& transform = transformFor("vDSP_fft_zrip", setup, log2n);
  if (direction != kFFTDirection_Forward) {
    NSLogAndAbort(NSStringWithFormat("vDSP_fft_zrip: direction is %d, only forward transforms exist", direction));
  }
  if (stride == 1) return transform.runSplit(c->realp, c->imagp, {c->realp, c->imagp});
  try {
    transformStrided(transform, *c, stride, vDSP_Stride{1} << (log2n - 1));
  } catch (const std::bad_alloc&) {
    NSLogAndAbort(NSStringWithFormat("vDSP_fft_zrip: no memory for log2n %zu with stride %td", log2n, stride));
  }
}

void packedSpectrumOfSamples(const FFTSetup& setup, const float* samples, const float* window, vDSP_Length log2n,
                             const DSPSplitComplex& spectrum, float* powers) {
  transformFor("packedSpectrumOfSamples", setup, log2n).runSamples(samples, window, {spectrum.realp, spectrum.imagp});
  vDSP_zvmags(&spectrum, 1, powers, 1, vDSP_Length{1} << (log2n - 1));
}

}  // namespace vidloom
