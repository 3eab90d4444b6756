#include "vidloom/platform/ffmpeg/AudioDecoder.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>

#include "tests/platform/ffmpeg/MediaTesting.h"

namespace vidloom {
namespace {

using testing::ClipSpec;
using testing::makeClip;
using testing::SoundSamples;

constexpr int kRate = 48000;

testing::OpenedMedia openSound(const std::filesystem::path& path) { return testing::openMedia(path, MediaKind::audio); }
std::unique_ptr<AudioDecoder> decoderFor(const testing::OpenedMedia& sound) { return testing::decoderFor<AudioDecoder>(sound); }

int64_t samplesOf(const CMTime& time, double rate) { return std::llround(CMTimeGetSeconds(time) * rate); }

/// What the track shows from asset time zero on.
SoundSamples shownSound(const testing::OpenedMedia& sound) {
  auto decoder = decoderFor(sound);
  SoundSamples shown;
  for (const MediaEdit& edit : sound.info().edits) {
    const int64_t count = samplesOf(edit.target.duration, decoder->sampleRate());
    SoundSamples part(static_cast<size_t>(count) * 2);
    if (!edit.isEmpty()) {
      decoder->read(samplesOf(edit.mediaStart, decoder->sampleRate()), static_cast<int>(count), part.data());
    }
    shown.insert(shown.end(), part.begin(), part.end());
  }
  return shown;
}

ClipSpec soundClip(const char* codec, const char* container, SoundSamples sound, int frames = 0) {
  return {.frameCount = frames,
          .sound = std::move(sound),
          .audioCodec = codec,
          .audioOptions = {"-b:a", "256k"},
          .container = container};
}

struct Container {
  const char* codec;
  const char* name;
  int64_t delay;  ///< of the encoder, where the container has no way to state it
};

constexpr Container kContainers[] = {
    {"aac", "m4a", 0},        {"aac", "mkv", 1024},  {"aac", "ts", 1024},     {"aac", "aac", 1024},    {"libmp3lame", "mp3", 0},
    {"libmp3lame", "mp4", 0}, {"libopus", "ogg", 0}, {"libopus", "webm", 0},  {"libvorbis", "ogg", 0}, {"libvorbis", "mkv", 0},
    {"flac", "flac", 0},      {"flac", "mkv", 0},    {"pcm_s24le", "wav", 0}, {"pcm_f32le", "wav", 0}, {"pcm_s16be", "mov", 0},
    {"alac", "m4a", 0},       {"ac3", "mp4", 0},     {"pcm_s16le", "avi", 0},
};

TEST(AudioDecoder, PlacesEverySoundAtItsSample) {
  const std::vector<int64_t> bursts{1000, 12000, 24000, 36000};
  for (const Container& container : kContainers) {
    const auto sound =
        openSound(makeClip(soundClip(container.codec, container.name, testing::soundWithBursts(kRate, bursts, kRate))));
    const std::vector<int64_t> found = testing::burstStarts(shownSound(sound), kRate);
    ASSERT_EQ(found.size(), bursts.size()) << container.codec << " in " << container.name;
    for (size_t i = 0; i < bursts.size(); ++i) {
      EXPECT_LE(std::llabs(found[i] - bursts[i] - container.delay), 2) << container.codec << " in " << container.name;
    }
  }
}

TEST(AudioDecoder, GivesTheSameSamplesHoweverTheyAreReached) {
  for (const Container& container : kContainers) {
    const std::string codec = container.codec, which = codec + " in " + container.name;
    if (which == "libvorbis in mkv") continue;  // stamps of a millisecond
    const auto sound = openSound(makeClip(soundClip(container.codec, container.name, testing::noise(6 * kRate, 3))));
    const auto linear = decoderFor(sound), jumping = decoderFor(sound);
    SoundSamples whole(size_t{12} * kRate), part(12000);
    for (int at = 0; at < 6 * kRate; at += 1000) linear->read(at, 1000, whole.data() + at * 2);
    std::mt19937 random(11);
    for (int step = 0; step < 25; ++step) {
      const int count = 100 + static_cast<int>(random() % 3000);
      const int at = static_cast<int>(random() % static_cast<unsigned>(6 * kRate - count));
      ASSERT_TRUE(jumping->read(at, count, part.data()));
      // Opus goes on from what it has learned of the sound before; the others forget within their pre-roll.
      const float tolerance = codec == "libopus" ? 0.08f : 0.002f;
      for (int i = 0; i < 2 * count; ++i)
        ASSERT_NEAR(part[size_t(i)], whole[size_t(2 * at + i)], tolerance) << which << " at " << at;
    }
  }
}

TEST(AudioDecoder, IsSilentWhereTheMediaHasNothing) {
  const SoundSamples noise = testing::noise(1000, 5);
  ClipSpec spec = soundClip("pcm_f32le", "wav", noise);
  spec.channels = 1;  // goes to both channels at unity
  const auto decoder = decoderFor(openSound(makeClip(spec)));
  for (const int64_t first : {int64_t{-1000}, int64_t{-10}, int64_t{0}, int64_t{990}, int64_t{1000}, int64_t{1} << 40}) {
    SoundSamples got(40, 1.0f), expected(40, 0.0f);
    for (int64_t i = 0; i < 40; ++i) {
      const int64_t at = first * 2 + i;
      if (at >= 0 && at < 2000) expected[static_cast<size_t>(i)] = noise[static_cast<size_t>(at)];
    }
    EXPECT_TRUE(decoder->read(first, 20, got.data()));
    EXPECT_EQ(got, expected) << "from " << first;
  }
}

TEST(AudioDecoder, FoldsDownByTheRecommendation) {
  const double minus3dB = std::sqrt(0.5);
  const struct {
    std::vector<int16_t> channels;  ///< FL FR FC LFE BL BR
    double left, right;
  } cases[] = {
      {{8192, 0, 0, 0, 0, 0}, 0.25, 0},
      {{0, 8192, 0, 0, 0, 0}, 0, 0.25},
      {{0, 0, 8192, 0, 0, 0}, 0.25 * minus3dB, 0.25 * minus3dB},
      {{0, 0, 0, 8192, 0, 0}, 0, 0},
      {{0, 0, 0, 0, 8192, 0}, 0.25 * minus3dB, 0},
      {{0, 0, 0, 0, 0, -8192}, 0, -0.25 * minus3dB},
      {{32767, 32767, 32767, 32767, 32767, 32767}, (1 + 2 * minus3dB) * 32767 / 32768, (1 + 2 * minus3dB) * 32767 / 32768},
  };
  for (const auto& test : cases) {
    std::vector<int16_t> samples;
    for (int frame = 0; frame < 4800; ++frame) samples.insert(samples.end(), test.channels.begin(), test.channels.end());
    const auto decoder = decoderFor(openSound(testing::writeWav("six.wav", kRate, 6, samples)));
    SoundSamples got(2);
    ASSERT_TRUE(decoder->read(2000, 1, got.data()));
    EXPECT_NEAR(got[0], test.left, 1e-5);
    EXPECT_NEAR(got[1], test.right, 1e-5);
  }
}

TEST(AudioDecoder, ReplacesADamagedPacketBySilenceAndLogsIt) {
  const auto clip = makeClip(soundClip("flac", "flac", testing::sine(440, 2 * kRate, kRate)));
  std::string bytes = testing::readFile(clip);
  for (size_t i = bytes.size() / 2; i < bytes.size() / 2 + 40; ++i) bytes[i] = static_cast<char>(~bytes[i]);
  const auto damaged = openSound(testing::writeFile("damaged.flac", bytes));
  const testing::LogCapture log;
  const SoundSamples whole = shownSound(openSound(clip)), got = shownSound(damaged);
  EXPECT_TRUE(log.contains({"damaged.flac", "damaged", " s: "}));
  ASSERT_EQ(got.size(), whole.size());
  const auto end = static_cast<ptrdiff_t>(got.size()) - 20000;
  EXPECT_EQ(SoundSamples(got.begin() + end, got.end()), SoundSamples(whole.begin() + end, whole.end()));
}

}  // namespace
}  // namespace vidloom
