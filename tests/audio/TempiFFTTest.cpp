#include "vidloom/audio/TempiFFT.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <limits>
#include <numbers>
#include <numeric>
#include <vector>

namespace vidloom {
namespace {

using ::testing::Each;
using ::testing::FloatEq;
using ::testing::FloatNear;
using ::testing::IsEmpty;
using ::testing::Pointwise;

constexpr float kNotANumber = std::numeric_limits<float>::quiet_NaN();

/// `turns` whole turns of a full-scale sine.
std::vector<float> sine(size_t count, double turns) {
  std::vector<float> samples(count);
  for (size_t n = 0; n < count; ++n) {
    samples[n] = static_cast<float>(std::sin(2 * std::numbers::pi * turns * static_cast<double>(n) / static_cast<double>(count)));
  }
  return samples;
}

/// 1024 samples at 44,100 Hz, transformed; bin powers differ everywhere.
std::shared_ptr<TempiFFT> transformed() {
  auto fft = TempiFFT::init(1024, 44100);
  std::vector<float> samples(1024, 0);
  samples[0] = 1;
  samples[1] = 0.9f;
  fft->forward(samples);
  return fft;
}

float meanOf(const std::vector<float>& values, size_t start, size_t end) {
  return std::accumulate(values.begin() + static_cast<ptrdiff_t>(start), values.begin() + static_cast<ptrdiff_t>(end), 0.0f) /
         static_cast<float>(end - start);
}

TEST(TempiFFT, StartsEmptyAndKnowsItsMeasures) {
  const auto fft = TempiFFT::init(1024, 44100);
  EXPECT_EQ(fft->halfSize(), 512);
  EXPECT_EQ(fft->log2Size(), 10);
  EXPECT_EQ(fft->nyquistFrequency(), 22050);
  EXPECT_FALSE(fft->hasPerformedFFT());
  EXPECT_THAT(fft->magnitudes(), IsEmpty());
  EXPECT_THAT(std::vector(fft->complexBuffer().realp, fft->complexBuffer().realp + 512), Each(0));
  EXPECT_FALSE(fft->bandMagnitudes() || fft->bandFrequencies() || fft->bandMinFreq() || fft->bandMaxFreq());
  fft->forward(std::vector<float>(1024));
  EXPECT_TRUE(fft->hasPerformedFFT());
  EXPECT_FLOAT_EQ(fft->bandwidth(), 43.066406f);
}

TEST(TempiFFT, PowersOfAFullScaleSineAreTheSquareOfTheWindowsSum) {
  for (const int64_t size : {16, 1024, 65536}) {
    for (const auto type : {TempiFFTWindowType::none, TempiFFTWindowType::hanning, TempiFFTWindowType::hamming}) {
      const auto fft = TempiFFT::init(size, 48000);
      fft->setWindowType(type);
      fft->forward(sine(static_cast<size_t>(size), 5));
      const double mean = type == TempiFFTWindowType::none ? 1 : type == TempiFFTWindowType::hanning ? std::sqrt(2.0 / 3) : 0.54;
      const double power = std::pow(mean * static_cast<double>(size), 2);
      EXPECT_EQ(fft->magnitudes().size(), static_cast<size_t>(size / 2));
      EXPECT_NEAR(fft->magnitudes()[5] / power, 1, 1e-5) << size;
      // A window spreads the sine to the neighbouring bins, and not further.
      EXPECT_NEAR(fft->magnitudes()[3] / power, 0, 1e-5) << size;
      EXPECT_NEAR(fft->magnitudes()[7] / power, 0, 1e-5) << size;
    }
  }
}

TEST(TempiFFT, KeepsThePackedSpectrum) {
  const auto fft = TempiFFT::init(8, 8);
  fft->forward({0, 1, 2, 3, 4, 5, 6, 7});
  const DSPSplitComplex& packed = fft->complexBuffer();
  EXPECT_THAT(std::vector(packed.realp, packed.realp + 4), Pointwise(FloatNear(1e-4f), {56, -8, -8, -8}));
  EXPECT_THAT(std::vector(packed.imagp, packed.imagp + 4), Pointwise(FloatNear(1e-4f), {-8.0, 19.313708, 8.0, 3.313708}));
  EXPECT_THAT(fft->magnitudes(), Pointwise(FloatNear(0.03f), {3200.0, 437.019336, 128.0, 74.980664}));
}

TEST(TempiFFT, LeavesOutSamplesBeyondTheSizeWithoutAWindow) {
  const auto fft = TempiFFT::init(4, 4), longer = TempiFFT::init(4, 4);
  fft->forward({1, 2, 3, 5});
  longer->forward({1, 2, 3, 5, 100, 100});
  EXPECT_EQ(longer->magnitudes(), fft->magnitudes());
}

TEST(TempiFFT, MakesItsWindowOnce) {
  const auto fft = TempiFFT::init(64, 64);
  const std::vector<float> samples = sine(64, 9);
  fft->forward(samples);
  EXPECT_THAT(fft->window(), IsEmpty());
  const std::vector<float> plain = fft->magnitudes();
  fft->setWindowType(TempiFFTWindowType::hamming);
  fft->forward(samples);
  EXPECT_FLOAT_EQ(fft->window()[0], 0.08f);
  const std::vector<float> window = fft->window(), windowed = fft->magnitudes();
  fft->setWindowType(TempiFFTWindowType::hanning);
  fft->forward(samples);
  EXPECT_EQ(fft->window(), window);
  EXPECT_EQ(fft->magnitudes(), windowed);
  fft->setWindowType(TempiFFTWindowType::none);
  fft->forward(samples);
  EXPECT_EQ(fft->magnitudes(), plain);
}

TEST(TempiFFT, AveragesLinearBands) {
  const auto fft = transformed();
  const float bandwidth = fft->bandwidth();
  struct Bins {
    size_t start, end;
  };
  const struct {
    const char* name;
    float minimum, maximum;
    std::vector<Bins> bands;
  } cases[] = {
      {"even parts", 0, 22050, {{0, 128}, {128, 256}, {256, 384}, {384, 512}}},
      {"bins cut down to whole ones", 100, 1000, {{2, 9}, {9, 16}, {16, 23}}},
      {"parts that are no whole bins", 0, 10 * bandwidth + 1, {{0, 3}, {3, 6}, {6, 10}}},
      {"narrower than a bin", 1000, 1050, {{23, 23}, {23, 24}}},
      {"no wider than one bin", 500, 510, {{11, 11}, {11, 11}, {11, 11}}},
      {"above half the rate", 11025, 1e6f, {{256, 384}, {384, 512}}},
      {"at half the rate's end", 22000, 22050, {{510, 510}, {510, 511}, {511, 512}}},
  };
  for (const auto& [name, minimum, maximum, bands] : cases) {
    SCOPED_TRACE(name);
    fft->linearBands(minimum, maximum, static_cast<int64_t>(bands.size()));
    ASSERT_EQ(fft->numberOfBands(), static_cast<int64_t>(bands.size()));
    for (size_t band = 0; band < bands.size(); ++band) {
      const auto [start, end] = bands[band];
      const float mean = start == end ? fft->magnitudes()[start] : meanOf(fft->magnitudes(), start, end);
      EXPECT_FLOAT_EQ(fft->magnitudeAtBand(static_cast<int64_t>(band)), mean) << band;
      EXPECT_FLOAT_EQ(fft->frequencyAtBand(static_cast<int64_t>(band)), bandwidth * static_cast<float>(start + end) / 2) << band;
    }
    EXPECT_EQ(fft->bandMinFreq(), fft->bandFrequencies()->front());
    EXPECT_EQ(fft->bandMaxFreq(), fft->bandFrequencies()->back());
  }
  fft->linearBands(0, 1000, 0);
  EXPECT_THAT(fft->bandMagnitudes().value(), IsEmpty());
  EXPECT_FALSE(fft->bandMinFreq() || fft->bandMaxFreq());
}

TEST(TempiFFT, FindsTheBinOfAFrequency) {
  const auto fft = transformed();
  const float bandwidth = fft->bandwidth();
  const struct {
    float frequency;
    size_t bin;
  } cases[] = {{0, 0}, {bandwidth * 0.99f, 0}, {bandwidth, 1}, {1000, 23}, {22049, 511}};
  for (const auto& [frequency, bin] : cases) EXPECT_EQ(fft->magnitudeAtFrequency(frequency), fft->magnitudes()[bin]) << frequency;
}

TEST(TempiFFT, DecibelsEndAtMinus120) {
  const struct {
    float power, decibels;
  } cases[] = {{0, -120}, {1e-13f, -120}, {-1, -120}, {1e-12f, -120}, {1, 0}, {2, 3.0103f}, {1e6f, 60}};
  for (const auto& [power, decibels] : cases) EXPECT_FLOAT_EQ(TempiFFT::toDecibels(power), decibels) << power;
}

TEST(TempiFFT, ACopyGoesItsOwnWay) {
  const auto fft = transformed();
  fft->linearBands(0, 22050, 4);
  const auto copy = fft->copy();
  const std::vector<float> magnitudes = fft->magnitudes();
  const float real = fft->complexBuffer().realp[1];
  fft->forward(sine(1024, 100));
  fft->linearBands(0, 22050, 2);
  EXPECT_EQ(copy->magnitudes(), magnitudes);
  EXPECT_EQ(copy->complexBuffer().realp[1], real);
  EXPECT_EQ(copy->numberOfBands(), 4);
  EXPECT_EQ(copy->fftSetup(), fft->fftSetup());
  copy->forward(sine(1024, 100));
  EXPECT_EQ(copy->magnitudes(), fft->magnitudes());
}

TEST(TempiFFTDeath, NamesOperationAndArgument) {
  const auto fft = transformed(), unused = TempiFFT::init(1024, 44100), windowed = TempiFFT::init(4, 4);
  fft->linearBands(0, 22050, 4);
  windowed->setWindowType(TempiFFTWindowType::hanning);
  const struct {
    std::function<void()> call;
    const char* line;
  } cases[] = {
      {[] { TempiFFT::init(); }, "TempiFFT init: needs a size and a sample rate"},
      {[] { TempiFFT::init(0, 44100); }, "TempiFFT init: size 0 is below 2"},
      {[] { TempiFFT::init(-4, 44100); }, "TempiFFT init: size -4 is below 2"},
      {[] { TempiFFT::init(1, 44100); }, "TempiFFT init: size 1 is below 2"},
      {[] { TempiFFT::init(1000, 44100); }, "TempiFFT init: size 1000 is not a power of two"},
      {[] { TempiFFT::init(int64_t{1} << 40, 44100); }, "TempiFFT init: size 1099511627776 has no transform"},
      {[&] { fft->forward(std::vector<float>(1023)); }, "TempiFFT forward: samples has 1023 values, the size is 1024\n"},
      {[&] {
         windowed->forward({1, 2, 3});
       },
       "TempiFFT forward: samples has 3 values, the size is 4, which the window has"},
      {[&] {
         windowed->forward({1, 2, 3, 4, 5});
       },
       "TempiFFT forward: samples has 5 values"},
      {[&] { fft->linearBands(0, 1000, -1); }, "TempiFFT linearBands: numberOfBands is -1"},
      {[&] { fft->linearBands(0, 1000, int64_t{1} << 62); }, "TempiFFT linearBands: no memory for 4611686018427387904 values"},
      {[&] { fft->linearBands(-100, 1000, 2); }, "TempiFFT linearBands: bin -2 is outside of the 512 there are"},
      {[&] { fft->linearBands(30000, 1000, 2); }, "TempiFFT linearBands: bin 696 is outside of the 512 there are"},
      {[&] { fft->linearBands(2000, 1000, 2); }, "TempiFFT linearBands: maxFrequency is below minFrequency"},
      {[&] { fft->linearBands(kNotANumber, 1000, 2); }, "TempiFFT linearBands: minFrequency is -?nan"},
      {[&] { fft->linearBands(0, kNotANumber, 0); }, "TempiFFT linearBands: maxFrequency is -?nan"},
      {[&] { unused->linearBands(0, 1000, 2); }, "TempiFFT linearBands: bin 0 is outside of the 0 there are"},
      {[&] { fft->magnitudeAtBand(4); }, "TempiFFT magnitudeAtBand: band 4 is outside of the 4 there are"},
      {[&] { fft->frequencyAtBand(-1); }, "TempiFFT frequencyAtBand: band -1 is outside of the 4 there are"},
      {[&] { unused->magnitudeAtBand(0); }, "TempiFFT magnitudeAtBand: band 0 is outside of the 0 there are"},
      {[&] { fft->magnitudeAtFrequency(22050); }, "TempiFFT magnitudeAtFrequency: bin 512 is outside of the 512 there are"},
      {[&] { fft->magnitudeAtFrequency(-1); }, "TempiFFT magnitudeAtFrequency: bin -1 is outside"},
      {[&] { fft->magnitudeAtFrequency(kNotANumber); }, "TempiFFT magnitudeAtFrequency: frequency is -?nan"},
      {[&] { unused->magnitudeAtFrequency(100); }, "TempiFFT magnitudeAtFrequency: bin 0 is outside of the 0 there are"},
  };
  for (const auto& [call, line] : cases) EXPECT_DEATH(call(), line);
}

}  // namespace
}  // namespace vidloom
