#include "vidloom/platform/accelerate/ClippedDecibels.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <vector>

namespace vidloom {
namespace {

struct Range {
  float zeroReference, low, high;
};

double decibelsByLibm(int16_t sample, const Range& range) {
  const double amplitude = std::abs(static_cast<double>(sample));
  return std::clamp<double>(20 * std::log10(amplitude / range.zeroReference), range.low, range.high);
}

TEST(ClippedDecibels, OfEverySampleAreThoseOfLibm) {
  for (const Range& range : {Range{32767, -50, 0}, Range{32768, -90, 0}, Range{1000, -6, 30}}) {
    const ClippedDecibels decibels(range.zeroReference, range.low, range.high);
    std::vector<int16_t> samples;
    for (int value = -32768; value <= 32767; ++value) samples.push_back(static_cast<int16_t>(value));
    std::vector<float> results(samples.size());
    decibels.ofEach(samples.data(), samples.size(), results.data());
    double worst = 0, worstSum = 0;
    for (size_t i = 0; i < samples.size(); ++i) {
      const double expected = decibelsByLibm(samples[i], range);
      worst = std::max(worst, std::abs(results[i] - expected));
      worstSum = std::max(worstSum, std::abs(decibels.sum(&samples[i], 1) - expected));
    }
    EXPECT_LT(worst, 2e-5) << range.low;
    EXPECT_LT(worstSum, 2e-5) << range.low;
  }
}

TEST(ClippedDecibels, AreSummedOverAnyNumberOfSamples) {
  std::mt19937 random(20);
  const Range range{32767, -50, 0};
  const ClippedDecibels decibels(range.zeroReference, range.low, range.high);
  for (const size_t count : {0, 1, 7, 15, 16, 17, 63, 64, 65, 127, 128, 200, 1000, 4410, 1 << 20, (1 << 21) + 77}) {
    for (const int loudest : {1, 90, 120, 3000, 32767}) {
      std::vector<int16_t> samples(count);
      std::uniform_int_distribution<int> amplitude(-loudest - 1, loudest);
      for (int16_t& sample : samples) sample = static_cast<int16_t>(amplitude(random));
      double expected = 0;
      for (const int16_t sample : samples) expected += decibelsByLibm(sample, range);
      EXPECT_NEAR(decibels.sum(samples.data(), count), expected, 2e-5 * static_cast<double>(count)) << count << " " << loudest;
    }
  }
}

}  // namespace
}  // namespace vidloom
