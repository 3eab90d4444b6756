#include "hostkit/WaveformPeaks.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>

#include "tests/support/Fixtures.h"
#include "vidloom/platform/avfoundation/AVError.h"

namespace vidloom {
namespace {

using testing::writeWav;

std::vector<int16_t> noise(size_t count) {
  std::mt19937 random(7);
  std::vector<int16_t> samples(count);
  for (int16_t& sample : samples) sample = static_cast<int16_t>(random());
  return samples;
}

/// Pixel by pixel from the definition.
std::vector<int16_t> expectedPeaks(const std::vector<int16_t>& samples, int64_t channels, int64_t framesPerPixel) {
  std::vector<int16_t> peaks;
  const auto frames = static_cast<int64_t>(samples.size()) / channels;
  for (int64_t begin = 0; begin < frames; begin += framesPerPixel) {
    int64_t lowest = 32767, highest = -32768;
    for (int64_t frame = begin; frame < std::min(frames, begin + framesPerPixel); ++frame) {
      int64_t sum = 0;
      for (int64_t channel = 0; channel < channels; ++channel) sum += samples[static_cast<size_t>(frame * channels + channel)];
      lowest = std::min(lowest, sum / channels);
      highest = std::max(highest, sum / channels);
    }
    peaks.push_back(static_cast<int16_t>(lowest));
    peaks.push_back(static_cast<int16_t>(highest));
  }
  return peaks;
}

TEST(WaveformPeaks, AreTheEndsOfEveryStretchOfTheAverageOfAllChannels) {
  struct Row {
    int channels;
    int64_t frames, count, framesPerPixel;
  };
  const Row rows[] = {{1, 44101, 100, 442}, {2, 44100, 7, 6300},     {2, 30000, 29999, 2},
                      {6, 30000, 640, 47},  {2, 1000, 1'000'000, 1}, {1, 1000, 0, 1},
                      {3, 5, 2, 3},         {1, 200000, 3, 66667},   {1, 15, 14, 2}};
  for (const Row& row : rows) {
    SCOPED_TRACE(::testing::Message() << row.channels << " channels, " << row.frames << " frames, " << row.count);
    const auto samples = noise(static_cast<size_t>(row.frames * row.channels));
    const auto asset = AVURLAsset::initWithURL(writeWav("noise.wav", 44100, row.channels, samples));
    std::optional<NSError> error;
    const auto peaks = readWaveformPeaks(asset, row.count, {}, &error);
    ASSERT_TRUE(peaks) << *error;
    EXPECT_EQ(peaks->sampleRate, 44100);
    EXPECT_EQ(peaks->framesPerPixel, row.framesPerPixel);
    EXPECT_TRUE(peaks->values == expectedPeaks(samples, row.channels, row.framesPerPixel));
  }
}

TEST(WaveformPeaks, TellTheProgressAndStopWhereItSaysSo) {
  const auto asset = AVURLAsset::initWithURL(writeWav("long.wav", 8000, 1, std::vector<int16_t>(400000)));
  double last = 0;
  std::optional<NSError> error;
  const auto goesOn = [&last](double percent) {
    EXPECT_GE(percent, last);
    last = percent;
    return percent < 60;
  };
  EXPECT_FALSE(readWaveformPeaks(asset, 10, goesOn, &error));
  EXPECT_GE(last, 60);
  EXPECT_EQ(error->code(), AVErrorOperationCancelled);
}

}  // namespace
}  // namespace vidloom
