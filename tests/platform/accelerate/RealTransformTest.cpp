#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cmath>
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

int log2Of(size_t size) { return static_cast<int>(std::lround(std::log2(static_cast<double>(size)))); }

/// Transforms in place, with numbers `stride` apart; fails where anything between them changes.
Packed transform(const FFTSetup& setup, const std::vector<float>& samples, size_t stride = 1) {
  const size_t count = samples.size() / 2;
  std::vector<float> real(count * stride + 1, kFiller), imaginary = real;
  for (size_t n = 0; n < count; ++n) {
    real[n * stride] = samples[2 * n];
    imaginary[n * stride] = samples[2 * n + 1];
  }
  const DSPSplitComplex split{real.data(), imaginary.data()};
  vDSP_fft_zrip(setup, &split, static_cast<vDSP_Stride>(stride), static_cast<vDSP_Length>(log2Of(samples.size())),
                kFFTDirection_Forward);
  Packed packed;
  for (size_t n = 0; n < real.size(); ++n) {
    if (n % stride == 0 && n < count * stride) {
      packed.emplace_back(real[n], imaginary[n]);
    } else {
      EXPECT_TRUE(real[n] == kFiller && imaginary[n] == kFiller) << "place " << n;
    }
  }
  return packed;
}

Packed transform(const std::vector<float>& samples, size_t stride = 1) {
  return transform(vDSP_create_fftsetup(static_cast<vDSP_Length>(log2Of(samples.size())), kFFTRadix2), samples, stride);
}

/// Twice the transform's value at one bin, by the definition.
std::complex<double> directBin(const std::vector<float>& samples, size_t bin) {
  std::complex<double> sum = 0;
  for (size_t n = 0; n < samples.size(); ++n) {
    const auto turns = static_cast<double>(bin * n % samples.size()) / static_cast<double>(samples.size());
    sum += static_cast<double>(samples[n]) * std::polar(1.0, -2 * std::numbers::pi * turns);
  }
  return 2.0 * sum;
}

std::complex<double> directPacked(const std::vector<float>& samples, size_t bin) {
  if (bin > 0) return directBin(samples, bin);
  return {directBin(samples, 0).real(), directBin(samples, samples.size() / 2).real()};
}

double largestOf(const Packed& packed) {
  double largest = 0;
  for (const std::complex<float>& number : packed) {
    largest = std::max({largest, std::abs(static_cast<double>(number.real())), std::abs(static_cast<double>(number.imag()))});
  }
  return largest;
}

void expectBins(const std::vector<float>& samples, const Packed& packed, const std::vector<size_t>& bins) {
  const double tolerance = 1e-5 * largestOf(packed);
  for (const size_t bin : bins) {
    const std::complex<double> direct = directPacked(samples, bin);
    EXPECT_NEAR(packed[bin].real(), direct.real(), tolerance) << "bin " << bin;
    EXPECT_NEAR(packed[bin].imag(), direct.imag(), tolerance) << "bin " << bin;
  }
}

TEST(RealTransform, GivesTwiceTheFourierTransformInPackedForm) {
  const auto wave = [](double (*function)(double), double turns) {
    std::vector<float> samples;
    for (int n = 0; n < 8; ++n) samples.push_back(static_cast<float>(function(2 * std::numbers::pi * turns * n)));
    return samples;
  };
  const struct {
    const char* name;
    std::vector<float> samples;
    std::vector<double> real, imaginary, powers;
  } cases[] = {
      {"ramp from 0", {0, 1, 2, 3, 4, 5, 6, 7}, {56, -8, -8, -8}, {-8, 19.313708, 8, 3.313708}, {3200, 437.019336, 128, 74.980664}},
      {"ramp from 1", {1, 2, 3, 4, 5, 6, 7, 8}, {72, -8, -8, -8}, {-8, 19.313708, 8, 3.313708}, {5248, 437.019336, 128, 74.980664}},
      {"constant", {1, 1, 1, 1, 1, 1, 1, 1}, {16, 0, 0, 0}, {0, 0, 0, 0}, {256, 0, 0, 0}},
      {"half the rate", {1, -1, 1, -1, 1, -1, 1, -1}, {0, 0, 0, 0}, {16, 0, 0, 0}, {256, 0, 0, 0}},
      {"cosine", wave(std::cos, 1.0 / 8), {0, 8, 0, 0}, {0, 0, 0, 0}, {0, 64, 0, 0}},
      {"sine", wave(std::sin, 1.0 / 8), {0, 0, 0, 0}, {0, -8, 0, 0}, {0, 64, 0, 0}},
      {"cosine of bin 2", wave(std::cos, 1.0 / 4), {0, 0, 8, 0}, {0, 0, 0, 0}, {0, 0, 64, 0}},
      {"impulse", {1, 0, 0, 0, 0, 0, 0, 0}, {2, 2, 2, 2}, {2, 0, 0, 0}, {8, 4, 4, 4}},
      {"late impulse", {0, 1}, {2, 1.414214, 0, -1.414214}, {-2, -1.414214, -2, -1.414214}, {8, 4, 4, 4}},
      {"two samples", {3, 5}, {16}, {-4}, {272}},
      {"four samples", {1, 2, 3, 5}, {22, -4}, {-6, 6}, {520, 52}},
      {"sixteen samples",
       {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16},
       {272, -16, -16, -16, -16, -16, -16, -16},
       {-16, 80.437432, 38.627417, 23.945692, 16, 10.690858, 6.627417, 3.182598},
       {74240, 6726.180436, 1748.077343, 829.396172, 512, 370.294451, 299.922657, 266.128940}},
  };
  for (const auto& [name, given, real, imaginary, powers] : cases) {
    SCOPED_TRACE(name);
    std::vector<float> samples = given;
    samples.resize(2 * real.size());
    const Packed packed = transform(samples);
    const double tolerance = 1e-5 * largestOf(packed), powerTolerance = 1e-5 * *std::max_element(powers.begin(), powers.end());
    std::vector<float> re, im, squares(packed.size());
    for (size_t bin = 0; bin < packed.size(); ++bin) {
      EXPECT_NEAR(packed[bin].real(), real[bin], tolerance) << "bin " << bin;
      EXPECT_NEAR(packed[bin].imag(), imaginary[bin], tolerance) << "bin " << bin;
      re.push_back(packed[bin].real());
      im.push_back(packed[bin].imag());
    }
    const DSPSplitComplex split{re.data(), im.data()};
    vDSP_zvmags(&split, 1, squares.data(), 1, squares.size());
    for (size_t bin = 0; bin < squares.size(); ++bin) EXPECT_NEAR(squares[bin], powers[bin], powerTolerance) << "bin " << bin;
  }
}

TEST(RealTransform, AgreesWithTheDefinitionAtEverySize) {
  onEveryTarget([] {
    for (size_t size = 2; size <= 1024; size *= 2) {
      SCOPED_TRACE(size);
      const std::vector<float> samples = noise(size);
      std::vector<size_t> bins;
      for (size_t bin = 0; bin < size / 2; ++bin) bins.push_back(bin);
      expectBins(samples, transform(samples), bins);
    }
  });
}

TEST(RealTransform, AgreesWithTheDefinitionAtLongSizes) {
  // The parts of the last one are too long for a single transform of the library below.
  for (const size_t size : {2048u, 4096u, 8192u, 16384u, 32768u, 65536u, 1u << 21}) {
    SCOPED_TRACE(size);
    const std::vector<float> samples = noise(size);
    const Packed packed = transform(samples);
    expectBins(samples, packed, {0, 1, size / 8, size / 4, size / 2 - 1, size / 7});
    // The energy of all bins: a wrong one would add to it or be missing.
    double energy = 0, spectrum = std::norm(packed[0]) / 2;
    for (const float sample : samples) energy += static_cast<double>(sample) * sample;
    for (size_t bin = 1; bin < packed.size(); ++bin) spectrum += std::norm(packed[bin]);
    EXPECT_NEAR(spectrum / (2 * energy * static_cast<double>(size)), 1, 1e-5);
  }
}

TEST(RealTransform, StepsOverBothArraysByTheStride) {
  for (const size_t size : {2u, 8u, 64u, 1024u}) {
    for (const size_t stride : {2u, 5u}) EXPECT_EQ(transform(noise(size), stride), transform(noise(size))) << size;
  }
}

TEST(RealTransform, OneSetupServesSmallerSizesAndSeveralThreads) {
  std::vector<std::vector<float>> inputs;
  std::vector<Packed> expected;
  for (size_t size = 2; size <= 16384; size *= 2) {
    inputs.push_back(noise(size));
    expected.push_back(transform(inputs.back()));
  }
  const FFTSetup setup = vDSP_create_fftsetup(14, kFFTRadix2);
  std::atomic<int> differences = 0;
  const auto group = dispatch_group_create();
  const auto queue = dispatch_queue_create("transforms", DISPATCH_QUEUE_CONCURRENT);
  for (size_t block = 0; block < 8; ++block) {
    dispatch_group_async(group, queue, [&, block] {
      for (size_t i = 0; i < 20 * inputs.size(); ++i) {
        const size_t number = (i + block) % inputs.size();
        if (transform(setup, inputs[number]) != expected[number]) ++differences;
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
        std::vector<float> window(size), weighted = samples;
        vDSP_hamm_window(window.data(), size, 0);
        if (windowed) vDSP_vmul(samples.data(), 1, window.data(), 1, weighted.data(), 1, size);
        std::vector<float> real(size / 2), imaginary = real, powers = real, expectedPowers = real;
        const auto log2n = static_cast<vDSP_Length>(log2Of(size));
        packedSpectrumOfSamples(vDSP_create_fftsetup(log2n, kFFTRadix2), samples.data(), windowed ? window.data() : nullptr, log2n,
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
  FFTSetup setup = vDSP_create_fftsetup(0, kFFTRadix2);
  EXPECT_TRUE(setup);
  vDSP_destroy_fftsetup(setup);
  EXPECT_FALSE(setup);
}

TEST(RealTransformDeath, NamesTheWrongArgument) {
  const FFTSetup setup = vDSP_create_fftsetup(3, kFFTRadix2);
  float real[8] = {}, imaginary[8] = {};
  const DSPSplitComplex split{real, imaginary};
  const auto zrip = [&](const FFTSetup& with, vDSP_Length log2n, FFTDirection direction) {
    vDSP_fft_zrip(with, &split, 1, log2n, direction);
  };
  EXPECT_DEATH(zrip(nullptr, 3, kFFTDirection_Forward), "vDSP_fft_zrip: the setup is null");
  EXPECT_DEATH(zrip(setup, 0, kFFTDirection_Forward), "vDSP_fft_zrip: log2n is 0, the setup has sizes from 1 to 3");
  EXPECT_DEATH(zrip(setup, 4, kFFTDirection_Forward), "vDSP_fft_zrip: log2n is 4");
  EXPECT_DEATH(zrip(setup, 3, -1), "vDSP_fft_zrip: direction is -1");
}

}  // namespace
}  // namespace vidloom
