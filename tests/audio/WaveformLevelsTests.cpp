// The levels that a waveform consists of, and how many there are.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>

#include "tests/audio/WaveformRecorder.h"
#include "tests/support/Fixtures.h"

namespace vidloom {
namespace {

using testing::Waveform;
using testing::waveformOf;
using testing::writeWav;

constexpr double kTolerance = 2e-4 / 50;  // of a level: 2e-4 dB

/// The plain form: the mean of clipped decibels over -50.
std::vector<double> levelsByLibm(const std::vector<int16_t>& samples, size_t samplesPerLevel) {
  std::vector<double> levels;
  for (size_t at = 0; at + samplesPerLevel <= samples.size(); at += samplesPerLevel) {
    double sum = 0;
    for (size_t i = at; i < at + samplesPerLevel; ++i) {
      sum += std::clamp(20 * std::log10(std::abs(static_cast<double>(samples[i])) / 32767), -50.0, 0.0);
    }
    levels.push_back(sum / static_cast<double>(samplesPerLevel) / -50);
  }
  return levels;
}

std::vector<int16_t> randomSound(size_t count, uint32_t seed) {
  std::mt19937 random(seed);
  std::vector<int16_t> samples(count);
  for (size_t i = 0; i < count; ++i) samples[i] = static_cast<int16_t>(static_cast<int16_t>(random()) / (1 << i / 50 % 16));
  return samples;
}

TEST(WaveformLevels, AreThoseOfThePlainFormWhateverTheirLength) {
  const std::vector<int16_t> samples = randomSound(90'000, 7);
  for (const int channels : {1, 2, 3}) {
    const auto file = writeWav("random.wav", 48000, channels, samples);
    for (const int64_t count : {1, 7, 1000, 5625, 45000, 80000}) {
      const Waveform waveform = waveformOf(file, count);
      EXPECT_EQ(waveform.samplesPerValue, std::max<int64_t>(1, 90'000 / count));
      const std::vector<double> expected = levelsByLibm(samples, static_cast<size_t>(waveform.samplesPerValue));
      ASSERT_EQ(waveform.values.size(), expected.size()) << count;
      double worst = 0;
      for (size_t i = 0; i < expected.size(); ++i) {
        worst = std::max(worst, std::abs(expected[i] - waveform.values[i]));
        const bool isEnd = expected[i] == 0 || expected[i] == 1;
        EXPECT_TRUE(!isEnd || waveform.values[i] == static_cast<float>(expected[i])) << i;
      }
      EXPECT_LT(worst, kTolerance) << count << " levels of " << channels << " channels";
    }
  }
}

TEST(WaveformLevels, AreAsManyAsGoIntoTheSound) {
  struct Case {
    int sampleRate, channels;
    size_t frames;
    int64_t count, samplesPerValue;
    size_t values;
  };
  const Case cases[] = {{44100, 2, 441'000, 100, 8820, 100}, {8000, 1, 1000, 999, 1, 1000},         {8000, 1, 1000, 300, 3, 333},
                        {8000, 2, 1000, -5, 1, 2000},        {96000, 6, 1001, 10'000'000, 1, 6006}, {8000, 1, 1, 3, 1, 1}};
  for (const Case& one : cases) {
    const std::vector<int16_t> samples(one.frames * static_cast<size_t>(one.channels), 500);
    const Waveform waveform = waveformOf(writeWav("sized.wav", one.sampleRate, one.channels, samples), one.count);
    EXPECT_EQ(waveform.values.size(), one.values) << one.frames << " frames, count " << one.count;
    EXPECT_EQ(waveform.samplesPerValue, one.samplesPerValue) << one.frames << " frames, count " << one.count;
  }
}

std::vector<int16_t> decodedByFfmpeg(const std::filesystem::path& file) {
  std::string bytes;
  testing::runProgram({"ffmpeg", "-v", "error", "-i", file.string(), "-map", "0:a:0", "-f", "s16le", "-"}, &bytes);
  std::vector<int16_t> samples(bytes.size() / sizeof(int16_t));
  std::copy_n(bytes.data(), samples.size() * sizeof(int16_t), reinterpret_cast<char*>(samples.data()));
  return samples;
}

TEST(WaveformLevels, OfRealFilesCoverWhatIsDecoded) {
  struct Case {
    std::string name;
    size_t samples;        ///< between the edits, all channels
    bool ffmpegEndsThere;  ///< ffmpeg decodes the last packet of some files beyond the end of the edit
  };
  const Case cases[] = {{"m4a_aac_8k_mono.m4a", 24000, false},
                        {"h264_he_aac_v1.mp4", 2 * 44100, false},
                        {"h264_aac_51.mp4", 6 * 45056, true},
                        {"mp3_441hz_1s_lame_gapless.mp3", 44100, true},
                        {"ogg_vorbis_441hz_1s.ogg", 44100, false},
                        {"opus_441hz_1s.opus", 48000, true},
                        {"aac_441hz_1s_afconvert_priming.mp4", 44100, false},
                        {"wav_pcm24_11k_mono.wav", 11009, true},
                        {"bad_truncated.wav", 19956, true}};
  for (const Case& one : cases) {
    const std::filesystem::path file = std::filesystem::path(VIDLOOM_TEST_DATA) / "media" / one.name;
    for (const int64_t count : {1, 50, 100'000'000}) {
      const Waveform waveform = waveformOf(file, count);
      ASSERT_GT(waveform.samplesPerValue, 0) << one.name;
      EXPECT_EQ(waveform.values.size(), one.samples / static_cast<size_t>(waveform.samplesPerValue)) << one.name << " " << count;
      if (count != 50 || !one.ffmpegEndsThere) continue;
      const std::vector<int16_t> decoded = decodedByFfmpeg(file);
      EXPECT_EQ(decoded.size(), one.samples) << one.name;
      const std::vector<double> expected = levelsByLibm(decoded, static_cast<size_t>(waveform.samplesPerValue));
      ASSERT_EQ(waveform.values.size(), expected.size()) << one.name;
      for (size_t i = 0; i < expected.size(); ++i) ASSERT_NEAR(waveform.values[i], expected[i], 0.002) << one.name << " " << i;
    }
  }
}

}  // namespace
}  // namespace vidloom
