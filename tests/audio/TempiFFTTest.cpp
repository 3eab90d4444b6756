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

using ::testing::FloatNear;
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

TEST(TempiFFT, PowersOfAFullScaleSineAreTheSquareOfTheWindowsSum) {
  const std::pair<TempiFFTWindowType, double> rows[] = {
      {TempiFFTWindowType::none, 1}, {TempiFFTWindowType::hanning, std::sqrt(2.0 / 3)}, {TempiFFTWindowType::hamming, 0.54}};
  for (const auto& [type, mean] : rows) {
    const auto fft = TempiFFT::init(1024, 48000);
    fft->setWindowType(type);
    fft->forward(sine(1024, 5));
    EXPECT_NEAR(fft->magnitudes()[5] / std::pow(mean * 1024, 2), 1, 1e-5) << mean;
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
  std::vector<std::vector<float>> spectra;
  for (const auto type : {TempiFFTWindowType::none, TempiFFTWindowType::hamming, TempiFFTWindowType::hanning}) {
    fft->setWindowType(type);
    fft->forward(sine(64, 9));
    spectra.push_back(fft->magnitudes());
  }
  EXPECT_FLOAT_EQ(fft->window()[0], 0.08f);
  EXPECT_NE(spectra[1], spectra[0]);
  EXPECT_EQ(spectra[2], spectra[1]);
}

TEST(TempiFFT, AveragesLinearBandsAndFindsTheBinOfAFrequency) {
  const auto fft = transformed();
  const float bandwidth = fft->bandwidth();
  const struct {
    const char* name;
    float minimum, maximum;
    std::vector<std::pair<size_t, size_t>> bands;  ///< first bin, last bin + 1
  } cases[] = {
      {"bins cut down to whole ones", 100, 1000, {{2, 9}, {9, 16}, {16, 23}}},
      {"parts that are no whole bins", 0, 10 * bandwidth + 1, {{0, 3}, {3, 6}, {6, 10}}},
      {"narrower than a bin", 1000, 1050, {{23, 23}, {23, 24}}},
      {"no wider than one bin", 500, 510, {{11, 11}, {11, 11}, {11, 11}}},
      {"above half the rate", 11025, 1e6f, {{256, 384}, {384, 512}}},
      {"at half the rate's end", 22000, 22050, {{510, 510}, {510, 511}, {511, 512}}},
      {"none", 0, 1000, {}},
  };
  for (const auto& [name, minimum, maximum, bands] : cases) {
    SCOPED_TRACE(name);
    fft->linearBands(minimum, maximum, static_cast<int64_t>(bands.size()));
    ASSERT_EQ(fft->bandMagnitudes()->size(), bands.size());
    for (size_t band = 0; band < bands.size(); ++band) {
      const auto [start, end] = bands[band];
      const float mean = start == end ? fft->magnitudes()[start] : meanOf(fft->magnitudes(), start, end);
      EXPECT_FLOAT_EQ(fft->magnitudeAtBand(static_cast<int64_t>(band)), mean) << band;
      EXPECT_FLOAT_EQ(fft->frequencyAtBand(static_cast<int64_t>(band)), bandwidth * static_cast<float>(start + end) / 2) << band;
    }
  }
  const std::pair<float, size_t> bins[] = {{0, 0}, {bandwidth * 0.99f, 0}, {bandwidth, 1}, {22049, 511}};
  for (const auto& [frequency, bin] : bins) EXPECT_EQ(fft->magnitudeAtFrequency(frequency), fft->magnitudes()[bin]) << frequency;
}

TEST(TempiFFT, DecibelsEndAtMinus120) {
  const std::pair<float, float> rows[] = {{0, -120}, {1e-13f, -120}, {-1, -120}, {1, 0}, {2, 3.0103f}, {1e6f, 60}};
  for (const auto& [power, decibels] : rows) EXPECT_FLOAT_EQ(TempiFFT::toDecibels(power), decibels) << power;
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
}

TEST(TempiFFTDeath, NamesOperationAndArgument) {
  const auto fft = transformed(), unused = TempiFFT::init(1024, 44100), windowed = TempiFFT::init(4, 4);
  fft->linearBands(0, 22050, 4);
  windowed->setWindowType(TempiFFTWindowType::hanning);
  const std::vector<float> few(1023), five(5);
  const std::pair<std::function<void()>, const char*> cases[] = {
      {[] { TempiFFT::init(); }, "init: needs a size and a sample rate"},
      {[] { TempiFFT::init(1, 44100); }, "init: size 1 is below 2"},
      {[] { TempiFFT::init(1000, 44100); }, "init: size 1000 is not a power of two"},
      {[] { TempiFFT::init(int64_t{1} << 40, 44100); }, "init: size 1099511627776 has no transform"},
      {[&] { fft->forward(few); }, "forward: samples has 1023 values, the size is 1024\n"},
      {[&] { windowed->forward(five); }, "forward: samples has 5 values, the size is 4, which the window has"},
      {[&] { fft->linearBands(0, 1000, -1); }, "linearBands: numberOfBands is -1"},
      {[&] { fft->linearBands(0, 1000, int64_t{1} << 62); }, "linearBands: no memory for 4611686018427387904 values"},
      {[&] { fft->linearBands(-100, 1000, 2); }, "linearBands: bin -2 is outside of the 512 there are"},
      {[&] { fft->linearBands(2000, 1000, 2); }, "linearBands: maxFrequency is below minFrequency"},
      {[&] { fft->linearBands(kNotANumber, 1000, 2); }, "linearBands: minFrequency is -?nan"},
      {[&] { fft->linearBands(0, kNotANumber, 0); }, "linearBands: maxFrequency is -?nan"},
      {[&] { unused->linearBands(0, 1000, 2); }, "linearBands: bin 0 is outside of the 0 there are"},
      {[&] { fft->magnitudeAtBand(4); }, "magnitudeAtBand: band 4 is outside of the 4 there are"},
      {[&] { fft->frequencyAtBand(-1); }, "frequencyAtBand: band -1 is outside of the 4 there are"},
      {[&] { unused->magnitudeAtBand(0); }, "magnitudeAtBand: band 0 is outside of the 0 there are"},
      {[&] { fft->magnitudeAtFrequency(22050); }, "magnitudeAtFrequency: bin 512 is outside of the 512 there are"},
      {[&] { fft->magnitudeAtFrequency(kNotANumber); }, "magnitudeAtFrequency: frequency is -?nan"},
  };
  for (const auto& [call, line] : cases) EXPECT_DEATH(call(), std::string("TempiFFT ") + line);
}

}  // namespace
}  // namespace vidloom
