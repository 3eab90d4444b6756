#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <bit>
#include <complex>
#include <numbers>
#include <random>
#include <string>
#include <vector>

#include "tests/platform/pixels/EveryTarget.h"
#include "vidloom/platform/accelerate/vDSP_fft.h"
#include "vidloom/platform/dispatch/dispatch.h"

namespace vidloom {
namespace {

using test::onEveryTarget;
using Packed = std::vector<std::complex<float>>;

/// Filler stands between the numbers, and behind the last one.
constexpr float kFiller = 12345;

std::vector<float> noise(size_t size) {
  std::minstd_rand random(static_cast<unsigned>(size));
  std::uniform_real_distribution<float> values(-1, 1);
  std::vector<float> samples(size);
  std::generate(samples.begin(), samples.end(), [&] { return values(random); });
  return samples;
}

vDSP_Length log2Of(size_t size) { return static_cast<vDSP_Length>(std::countr_zero(size)); }
FFTSetup setupFor(size_t size) { return vDSP_create_fftsetup(log2Of(size), kFFTRadix2); }

/// Transforms in place, with numbers `stride` apart; fails where anything between them changes.
Packed transform(const FFTSetup& setup, const std::vector<float>& samples, size_t stride = 1) {
  const size_t count = samples.size() / 2;
  std::vector<float> real(count * stride + 1, kFiller), imaginary = real;
  for (size_t n = 0; n < count; ++n) {
    real[n * stride] = samples[2 * n];
    imaginary[n * stride] = samples[2 * n + 1];
  }
  const DSPSplitComplex split{real.data(), imaginary.data()};
  vDSP_fft_zrip(setup, &split, static_cast<vDSP_Stride>(stride), log2Of(samples.size()), kFFTDirection_Forward);
  Packed packed;
  for (size_t n = 0; n < real.size(); ++n) {
    const bool isResult = n % stride == 0 && n < count * stride;
    if (isResult) packed.emplace_back(real[n], imaginary[n]);
    EXPECT_TRUE(isResult || (real[n] == kFiller && imaginary[n] == kFiller)) << "place " << n;
  }
  return packed;
}

Packed transform(const std::vector<float>& samples, size_t stride = 1) {
  return transform(setupFor(samples.size()), samples, stride);
}

/// Twice the transform at one bin, by the definition; the middle one is the imaginary part of the first.
std::complex<double> direct(const std::vector<float>& samples, size_t bin) {
  std::complex<double> sum = 0;
  for (size_t n = 0; n < samples.size(); ++n) {
    const auto turns = static_cast<double>(bin * n % samples.size()) / static_cast<double>(samples.size());
    sum += 2.0 * static_cast<double>(samples[n]) * std::polar(1.0, -2 * std::numbers::pi * turns);
  }
  return bin > 0 ? sum : std::complex<double>(sum.real(), direct(samples, samples.size() / 2).real());
}

double largestOf(const Packed& packed) {
  double largest = 0;
  for (const std::complex<double> number : packed) largest = std::max(largest, std::abs(number));
  return largest;
}

TEST(RealTransform, GivesTwiceTheFourierTransformInPackedForm) {
  const float half = 0.70710678f;
  const struct {
    const char* name;
    std::vector<float> samples;
    std::vector<std::complex<double>> packed;
  } cases[] = {
      {"ramp from 0", {0, 1, 2, 3, 4, 5, 6, 7}, {{56, -8}, {-8, 19.313708}, {-8, 8}, {-8, 3.313708}}},
      {"half the rate", {1, -1, 1, -1, 1, -1, 1, -1}, {{0, 16}, 0, 0, 0}},
      {"cosine", {1, half, 0, -half, -1, -half, 0, half}, {0, 8, 0, 0}},
      {"sine", {0, half, 1, half, 0, -half, -1, -half}, {0, {0, -8}, 0, 0}},
      {"late impulse", {0, 1, 0, 0, 0, 0, 0, 0}, {{2, -2}, {1.414214, -1.414214}, {0, -2}, {-1.414214, -1.414214}}},
      {"two samples", {3, 5}, {{16, -4}}},
      {"four samples", {1, 2, 3, 5}, {{22, -6}, {-4, 6}}},
      {"sixteen samples",
       {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16},
       {{272, -16},
        {-16, 80.437432},
        {-16, 38.627417},
        {-16, 23.945692},
        {-16, 16},
        {-16, 10.690858},
        {-16, 6.627417},
        {-16, 3.182598}}},
  };
  for (const auto& [name, samples, expected] : cases) {
    const Packed packed = transform(samples);
    for (size_t bin = 0; bin < packed.size(); ++bin) {
      EXPECT_LE(std::abs(std::complex<double>(packed[bin]) - expected[bin]), 1e-5 * largestOf(packed)) << name << ", bin " << bin;
    }
  }
}

TEST(RealTransform, AgreesWithTheDefinitionAtEverySizeAndStride) {
  // The parts of the last one are too long for a single transform of the library below.
  for (size_t size = 2; size <= 1u << 21; size *= size == 65536 ? 32 : 2) {
    SCOPED_TRACE(size);
    const std::vector<float> samples = noise(size);
    double energy = 0;
    for (const float sample : samples) energy += static_cast<double>(sample) * sample;
    Packed expected(size / 2);
    const size_t step = size <= 1024 ? 1 : size / 7;
    for (size_t bin = 0; bin < size / 2; bin += step) expected[bin] = direct(samples, bin);
    EXPECT_EQ(transform(samples, 5), transform(samples));
    onEveryTarget([&] {
      const Packed packed = transform(samples);
      const double tolerance = 1e-5 * largestOf(packed);
      for (size_t bin = 0; bin < size / 2; bin += step)
        EXPECT_LE(std::abs(packed[bin] - expected[bin]), tolerance) << "bin " << bin;
      // The energy of all bins: a wrong one would add to it or be missing.
      double spectrum = -std::norm(packed[0]) / 2;
      for (const std::complex<double> number : packed) spectrum += std::norm(number);
      EXPECT_NEAR(spectrum / (2 * energy * static_cast<double>(size)), 1, 1e-5);
    });
  }
}

TEST(RealTransform, OneSetupServesSmallerSizesAndSeveralThreads) {
  std::vector<Packed> expected;
  for (size_t size = 2; size <= 16384; size *= 2) expected.push_back(transform(noise(size)));
  const FFTSetup setup = setupFor(16384);
  std::atomic<int> differences = 0;
  const auto group = dispatch_group_create();
  for (size_t block = 0; block < 8; ++block) {
    dispatch_group_async(group, dispatch_get_global_queue(QOS_CLASS_DEFAULT), [&, block] {
      for (size_t i = 0; i < 20 * expected.size(); ++i) {
        const size_t number = (i + block) % expected.size();
        if (transform(setup, noise(size_t{2} << number)) != expected[number]) ++differences;
      }
    });
  }
  dispatch_group_wait(group, DISPATCH_TIME_FOREVER);
  EXPECT_EQ(differences, 0);
}

TEST(RealTransform, TransformsSamplesAsTheyComeLikeTheSeparateSteps) {
  onEveryTarget([] {
    for (size_t size = 2; size <= 4096; size *= 2) {
      for (const bool windowed : {false, true}) {
        SCOPED_TRACE(std::to_string(size) + (windowed ? " with a window" : ""));
        const std::vector<float> samples = noise(size);
        std::vector<float> window(size), weighted = samples, real(size / 2), imaginary = real, powers = real;
        vDSP_hamm_window(window.data(), size, 0);
        if (windowed) vDSP_vmul(samples.data(), 1, window.data(), 1, weighted.data(), 1, size);
        packedSpectrumOfSamples(setupFor(size), samples.data(), windowed ? window.data() : nullptr, log2Of(size),
                                {real.data(), imaginary.data()}, powers.data());
        const Packed packed = transform(weighted);
        for (size_t bin = 0; bin < packed.size(); ++bin) {
          EXPECT_EQ(packed[bin], std::complex<float>(real[bin], imaginary[bin])) << "bin " << bin;
          EXPECT_FLOAT_EQ(powers[bin], std::norm(packed[bin])) << "bin " << bin;
        }
      }
    }
  });
}

TEST(RealTransform, MakesNoSetupForUnknownSizesAndRadices) {
  EXPECT_FALSE(vDSP_create_fftsetup(25, kFFTRadix2));
  EXPECT_FALSE(vDSP_create_fftsetup(4, kFFTRadix2 + 1));
  EXPECT_TRUE(vDSP_create_fftsetup(0, kFFTRadix2));
}

TEST(RealTransformDeath, NamesTheWrongArgument) {
  float real[8] = {}, imaginary[8] = {};
  const DSPSplitComplex split{real, imaginary};
  const struct {
    FFTSetup setup;
    vDSP_Length log2n;
    FFTDirection direction;
    const char* words;
  } cases[] = {
      {nullptr, 3, kFFTDirection_Forward, "the setup is null"},
      {setupFor(8), 0, kFFTDirection_Forward, "log2n is 0, the setup has sizes from 1 to 3"},
      {setupFor(8), 4, kFFTDirection_Forward, "log2n is 4"},
      {setupFor(8), 3, -1, "direction is -1"},
  };
  for (const auto& [setup, log2n, direction, words] : cases) {
    EXPECT_DEATH(vDSP_fft_zrip(setup, &split, 1, log2n, direction), std::string("vDSP_fft_zrip: ") + words);
  }
}

}  // namespace
}  // namespace vidloom
