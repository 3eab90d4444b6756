#include "vidloom/platform/accelerate/ClippedDecibels.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <vector>

namespace vidloom {
namespace {

double decibelsByLibm(int16_t sample, float zeroReference, float low, float high) {
  return std::clamp<double>(20 * std::log10(std::abs(static_cast<double>(sample)) / zeroReference), low, high);
}

TEST(ClippedDecibels, OfEverySampleAreThoseOfLibm) {
  const float ranges[][3] = {{32767, -50, 0}, {32768, -90, 0}, {1000, -6, 30}};
  for (const auto& [zeroReference, low, high] : ranges) {
    const ClippedDecibels decibels(zeroReference, low, high);
    std::vector<int16_t> samples;
    for (int value = -32768; value <= 32767; ++value) samples.push_back(static_cast<int16_t>(value));
    std::vector<float> results(samples.size());
    decibels.ofEach(samples.data(), samples.size(), results.data());
    for (size_t i = 0; i < samples.size(); ++i) {
      const double expected = decibelsByLibm(samples[i], zeroReference, low, high);
      ASSERT_NEAR(results[i], expected, 2e-5) << samples[i] << " in " << low;
      ASSERT_NEAR(decibels.sum(&samples[i], 1), expected, 2e-5) << samples[i] << " in " << low;
    }
  }
}

TEST(ClippedDecibels, AreSummedOverAnyNumberOfSamples) {
  std::mt19937 random(20);
  const ClippedDecibels decibels(32767, -50, 0);
  for (const size_t count : {0, 1, 15, 16, 17, 63, 64, 65, 200, 4410, (1 << 21) + 77}) {
    for (const int loudest : {1, 90, 120, 3000, 32767}) {
      std::vector<int16_t> samples(count);
      std::uniform_int_distribution<int> amplitude(-loudest - 1, loudest);
      double expected = 0;
      for (int16_t& sample : samples) expected += decibelsByLibm(sample = static_cast<int16_t>(amplitude(random)), 32767, -50, 0);
      EXPECT_NEAR(decibels.sum(samples.data(), count), expected, 2e-5 * static_cast<double>(count)) << count << " " << loudest;
    }
  }
}

}  // namespace
}  // namespace vidloom
