#include "vidloom/platform/reading/AudioMixer.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <numbers>

#include "tests/platform/reading/FakeMedia.h"

namespace vidloom {
namespace {

using testing::DecoderLog;
using testing::emptySegment;
using testing::FakeFile;
using testing::FakeTrack;
using testing::seconds;
using testing::segment;

/// A different value for every sample: tells which one was taken.
float identity(int64_t frame, int channel) { return static_cast<float>((frame + 500000) * 2 + channel) / 4000000.0f; }

class AudioMixerTest : public ::testing::Test {
 protected:
  AudioMixerTest() {
    setup.range = {kCMTimeZero, seconds(1000)};
    setup.opener = testing::fakeAudioOpener(log);
  }
  CMPersistentTrackID add(std::vector<MediaSegment> segments) {
    const auto id = static_cast<CMPersistentTrackID>(setup.audioTracks.size() + 1);
    setup.audioTracks.push_back(std::make_shared<FakeTrack>(id, AVMediaTypeAudio, std::move(segments)));
    return id;
  }
  /// Everything that comes out, interleaved; checks that blocks follow each other.
  std::vector<float> mixed() {
    AudioMixer mixer(setup);
    std::vector<float> all;
    std::optional<NSError> error;
    while (const auto sample = mixer.next(&error)) {
      const CMTime due = CMTimeAdd(setup.range.start, CMTimeMake(static_cast<int64_t>(all.size() / 2), setup.format.sampleRate));
      EXPECT_EQ(CMTimeCompare(CMSampleBufferGetPresentationTimeStamp(sample), due), 0);
      const auto& bytes = CMSampleBufferGetDataBuffer(sample)->bytes();
      EXPECT_EQ(bytes.size(), static_cast<size_t>(CMSampleBufferGetNumSamples(sample)) * 2 * sizeof(float));
      all.resize(all.size() + bytes.size() / sizeof(float));
      std::memcpy(all.data() + all.size() - bytes.size() / sizeof(float), bytes.data(), bytes.size());
    }
    EXPECT_FALSE(error) << *error;
    EXPECT_EQ(static_cast<int64_t>(all.size() / 2), mixer.frameCount());
    return all;
  }
  static std::shared_ptr<FakeFile> toneFile(double hertz, int rate) {
    return FakeFile::audio("tone", rate, [=](int64_t frame, int) {
      return static_cast<float>(0.5 * std::sin(2 * std::numbers::pi * hertz * static_cast<double>(frame) / rate));
    });
  }

  const std::shared_ptr<DecoderLog> log = std::make_shared<DecoderLog>();
  const std::shared_ptr<FakeFile> own = FakeFile::audio("own", 44100, identity);
  AudioMixer::Setup setup;
};

TEST_F(AudioMixerTest, CopiesEverySampleOfTheOutputsRateToItsPlace) {
  struct Row {
    const char* what;
    CMTime target, media;
    int64_t firstSample;  ///< of the output that has sound
    int64_t sourceFrame;  ///< that lies there
  };
  const Row rows[] = {
      {"from the start", kCMTimeZero, kCMTimeZero, 0, 0},
      {"whole samples", seconds(1, 30), seconds(7, 44100), 1470, 7},
      {"late by less than a sample", seconds(3, 88200), kCMTimeZero, 2, 1},
      {"a trim between samples", kCMTimeZero, seconds(1, 24), 0, 1838},
      {"both between samples", seconds(1, 24), seconds(1001, 24000), 1838, 1840},
      {"before the media", kCMTimeZero, seconds(-10, 44100), 0, -10},
  };
  for (const Row& row : rows) {
    setup.audioTracks.clear();
    add({segment(own, row.target, seconds(1000, 44100), row.media)});
    const auto out = mixed();
    ASSERT_EQ(static_cast<int64_t>(out.size() / 2), row.firstSample + 1000) << row.what;
    for (int64_t i = 0; i < row.firstSample + 1000; ++i) {
      for (int channel = 0; channel < 2; ++channel) {
        const float expected = i < row.firstSample ? 0.0f : identity(row.sourceFrame + i - row.firstSample, channel);
        ASSERT_EQ(out[static_cast<size_t>(2 * i + channel)], expected) << row.what << ", sample " << i;
      }
    }
  }
}

TEST_F(AudioMixerTest, CutsAtTheExactSampleAndIsSilentInGaps) {
  add({segment(own, kCMTimeZero, seconds(1001, 30000), seconds(1)), emptySegment(seconds(1001, 30000), seconds(1, 10)),
       segment(own, seconds(4001, 30000), seconds(1, 10), seconds(5))});
  const auto out = mixed();
  // 1001/30000 s are 1471.47 samples, 4001/30000 s 5881.47.
  ASSERT_EQ(out.size() / 2, 10292u);
  for (int64_t i = 0; i < 10292; ++i) {
    const float expected = i < 1472 ? identity(44100 + i, 0) : i < 5882 ? 0.0f : identity(5 * 44100 + i - 5881, 0);
    ASSERT_EQ(out[static_cast<size_t>(2 * i)], expected) << i;
  }
}

TEST_F(AudioMixerTest, AClipThatWasOnlySplitSoundsAsBefore) {
  std::vector<MediaSegment> pieces;
  for (int i = 0; i < 50; ++i) {
    pieces.push_back(
        segment(own, CMTimeAdd(seconds(1, 7), seconds(i, 24)), seconds(1, 24), CMTimeAdd(seconds(2, 3), seconds(i, 24))));
  }
  add(pieces);
  const auto split = mixed();
  setup.audioTracks.clear();
  add({segment(own, seconds(1, 7), seconds(50, 24), seconds(2, 3))});
  EXPECT_EQ(split, mixed());
}

TEST_F(AudioMixerTest, OutputEndsWithTheRangeOrTheLastSound) {
  struct Row {
    CMTimeRange range;
    CMTime soundStart, soundLength;
    int64_t frames;
  };
  const Row rows[] = {
      {{kCMTimeZero, seconds(10)}, kCMTimeZero, seconds(1, 30), 1470},
      {{kCMTimeZero, seconds(10)}, seconds(1), seconds(1, 30), 45570},
      {{kCMTimeZero, seconds(1, 30)}, kCMTimeZero, seconds(10), 1470},
      {{seconds(1, 7), seconds(1, 30)}, kCMTimeZero, seconds(10), 1470},
      {{kCMTimeZero, seconds(1001, 30000)}, kCMTimeZero, seconds(10), 1472},
      {{seconds(5), seconds(1)}, kCMTimeZero, seconds(5), 0},
      {{seconds(5), seconds(1)}, seconds(7), seconds(5), 44100},
  };
  for (const Row& row : rows) {
    setup.audioTracks.clear();
    setup.range = row.range;
    add({emptySegment(kCMTimeZero, row.soundStart), segment(own, row.soundStart, row.soundLength, kCMTimeZero)});
    EXPECT_EQ(static_cast<int64_t>(mixed().size() / 2), row.frames) << row.range.start << " " << row.range.duration;
  }
}

TEST_F(AudioMixerTest, TonesOfOtherRatesAndSpeedsStayInPlaceAndChangeTheirPitchWithTheSpeed) {
  struct Row {
    int rate;
    double hertz;
    CMTime target, mediaStart, mediaLength;
  };
  std::vector<Row> rows;
  for (const int rate : {8000, 22050, 32000, 48000, 96000}) rows.push_back({rate, 997, seconds(1), seconds(1, 3), seconds(1)});
  for (const CMTime& length : {seconds(1), seconds(4), seconds(1, 5)})
    rows.push_back({48000, 440, length, kCMTimeZero, seconds(2)});
  for (const Row& row : rows) {
    setup.audioTracks.clear();
    add({segment(toneFile(row.hertz, row.rate), kCMTimeZero, row.target, row.mediaStart, row.mediaLength)});
    const auto out = mixed();
    ASSERT_EQ(static_cast<double>(out.size()), 88200 * CMTimeGetSeconds(row.target));
    const double speed = CMTimeGetSeconds(row.mediaLength) / CMTimeGetSeconds(row.target);
    double worst = 0;
    for (size_t i = 0; i < out.size() / 2; ++i) {
      const double at = CMTimeGetSeconds(row.mediaStart) + static_cast<double>(i) / 44100 * speed;
      worst = std::max(worst, std::abs(out[2 * i] - 0.5 * std::sin(2 * std::numbers::pi * row.hertz * at)));
    }
    EXPECT_LT(worst, 2e-5) << row.rate << " at speed " << speed;
  }
}

TEST_F(AudioMixerTest, TracksAddUpAndTheSumIsClipped) {
  const auto constant = [](float value) { return FakeFile::audio("level", 44100, [=](int64_t, int) { return value; }); };
  add({segment(constant(0.5f), kCMTimeZero, seconds(1), kCMTimeZero)});
  add({segment(constant(0.25f), kCMTimeZero, seconds(1, 2), kCMTimeZero)});
  add({emptySegment(kCMTimeZero, seconds(1, 4)), segment(constant(0.5f), seconds(1, 4), seconds(1, 4), kCMTimeZero)});
  const auto out = mixed();
  for (size_t i = 0; i < out.size(); ++i) ASSERT_EQ(out[i], i < 2 * 11025 ? 0.75f : i < 2 * 22050 ? 1.0f : 0.5f) << i;
}

TEST_F(AudioMixerTest, VolumesFollowTheirKeysToTheSample) {
  const auto one = FakeFile::audio("one", 44100, [](int64_t, int) { return 1.0f; });
  const auto id = add({segment(one, kCMTimeZero, seconds(2), kCMTimeZero)});
  const auto parameters = AVMutableAudioMixInputParameters::audioMixInputParametersWithTrack(nullptr);
  parameters->setTrackID(id);
  parameters->setVolume(0.25f, seconds(100, 44100));
  parameters->setVolumeRampFromStartVolume(0.25f, 0.75f, {seconds(1, 2), seconds(1)});
  const auto mix = AVMutableAudioMix::audioMix();
  mix->setInputParameters({parameters});
  setup.mix = mix;
  const auto out = mixed();
  for (size_t i = 0; i < out.size() / 2; ++i) {
    const double along = std::clamp((static_cast<double>(i) - 22050) / 44100, 0.0, 1.0);
    ASSERT_NEAR(out[2 * i], i < 100 ? 1 : 0.25 + 0.5 * along, 1e-5) << i;
  }
}

TEST_F(AudioMixerTest, BlocksOfAnySizeGiveTheSameSound) {
  const auto music = FakeFile::audio("music", 48000, [](int64_t frame, int channel) {
    return static_cast<float>(std::sin(0.001 * static_cast<double>(frame * (frame % 97)) + channel));
  });
  std::vector<MediaSegment> segments;
  for (int i = 0; i < 12; ++i) segments.push_back(segment(music, seconds(i, 11), seconds(1, 11), seconds(i, 7), seconds(1, 7)));
  segments.push_back(segment(music, seconds(12, 11), seconds(1, 3), seconds(12, 7), seconds(1, 9)));
  segments.push_back(segment(own, CMTimeAdd(seconds(12, 11), seconds(1, 3)), seconds(1, 3), seconds(1)));
  add(segments);
  const auto expected = mixed();
  for (const int frames : {1000, 511, 44100}) {
    setup.blockFrames = frames;
    EXPECT_EQ(mixed(), expected) << frames;
  }
}

TEST_F(AudioMixerTest, ARampHasNoClickAtItsBorders) {
  // From speed 1 to 4 in forty steps of a quarter of a second of media.
  const auto file = toneFile(440, 44100);
  std::vector<MediaSegment> segments;
  CMTime at = kCMTimeZero;
  for (int i = 0; i < 40; ++i) {
    const CMTime length = CMTimeMake(1000, 4000 + 300 * i);
    segments.push_back(segment(file, at, length, seconds(i, 4), seconds(1, 4)));
    at = CMTimeAdd(at, length);
  }
  add(segments);
  const auto out = mixed();
  for (size_t i = 2; i < out.size() / 2; ++i) {
    const double second =
        static_cast<double>(out[2 * i]) - 2.0 * static_cast<double>(out[2 * i - 2]) + static_cast<double>(out[2 * i - 4]);
    // What a tone of the highest pitch nearby has at most: amplitude x (angle a sample)^2.
    const double time = static_cast<double>(i) / 44100 + 0.01;
    double speed = 1;
    for (const auto& s : segments) {
      if (CMTimeGetSeconds(s.target.start) <= time)
        speed = CMTimeGetSeconds(s.media.duration) / CMTimeGetSeconds(s.target.duration);
    }
    const double angle = 2 * std::numbers::pi * 440 * speed / 44100;
    ASSERT_LT(std::abs(second), 1.05 * 0.5 * angle * angle + 1e-5) << "sample " << i;
  }
}

TEST_F(AudioMixerTest, SoundIsInTheAskedForm) {
  add({segment(FakeFile::audio("level", 44100, [](int64_t, int channel) { return channel == 0 ? 0.5f : -2.0f; }), kCMTimeZero,
               seconds(1, 44100), kCMTimeZero)});
  setup.format = {44100, 2, false};
  const auto sample = AudioMixer(setup).next(nullptr);
  const auto& bytes = CMSampleBufferGetDataBuffer(sample)->bytes();
  ASSERT_EQ(bytes.size(), 4u);
  int16_t values[2];
  std::memcpy(values, bytes.data(), sizeof values);
  EXPECT_EQ(values[0], 16384);
  EXPECT_EQ(values[1], -32768);
}

TEST_F(AudioMixerTest, AFileThatCannotBeOpenedIsNamed) {
  add({emptySegment(kCMTimeZero, seconds(3)),
       segment(FakeFile::audio("mute.wav", 44100, identity), seconds(3), seconds(1), kCMTimeZero)});
  log->failsToOpen = true;
  AudioMixer mixer(setup);
  std::optional<NSError> error;
  while (mixer.next(&error)) {
  }
  ASSERT_TRUE(error);
  EXPECT_NE(error->localizedDescription().find("mute.wav"), std::string::npos);
  EXPECT_NE(error->localizedDescription().find("no decoder for that"), std::string::npos);
}

TEST_F(AudioMixerTest, ACancelledMixerGivesNothingAlsoInAGap) {
  for (const bool gap : {false, true}) {
    setup.audioTracks.clear();
    add({gap ? emptySegment(kCMTimeZero, seconds(10)) : segment(own, kCMTimeZero, seconds(10), kCMTimeZero),
         segment(own, seconds(10), seconds(1), kCMTimeZero)});
    AudioMixer mixer(setup);
    EXPECT_TRUE(mixer.next(nullptr));
    mixer.cancel();
    std::optional<NSError> error;
    EXPECT_EQ(mixer.next(&error), nullptr) << (gap ? "in a gap" : "in sound");
    EXPECT_FALSE(error);
  }
}

TEST_F(AudioMixerTest, FewDecodersServeManyCutsAndTracks) {
  std::vector<std::shared_ptr<FakeFile>> files;
  for (int i = 0; i < 20; ++i) files.push_back(FakeFile::audio("clip", 44100, identity));
  for (const int track : {0, 1}) {
    std::vector<MediaSegment> segments;
    for (int i = 0; i < 100; ++i) {
      segments.push_back(segment(files[static_cast<size_t>(i * (track + 3) % 20)], seconds(i, 5), seconds(1, 5), seconds(i)));
    }
    add(segments);
  }
  mixed();
  EXPECT_LE(log->mostOpen, 4);
}

}  // namespace
}  // namespace vidloom
