#include "vidloom/platform/reading/AudioMixer.h"

#include <gmock/gmock.h>

#include <cmath>
#include <cstring>
#include <numbers>

#include "tests/platform/reading/FakeMedia.h"

namespace vidloom {
namespace {

using namespace testing;
using ::testing::AllOf;
using ::testing::HasSubstr;

/// A different value for every sample: tells which one was taken.
float identity(int64_t frame, int64_t channel) { return static_cast<float>((frame + 500000) * 2 + channel) / 4000000.0f; }

class AudioMixerTest : public ::testing::Test {
 protected:
  AudioMixerTest() {
    setup.range = {kCMTimeZero, seconds(1000)};
    setup.opener = fakeAudioOpener(log);
  }
  void add(std::vector<MediaSegment> segments) {
    const auto id = static_cast<CMPersistentTrackID>(setup.audioTracks.size() + 1);
    setup.audioTracks.push_back(std::make_shared<FakeTrack>(id, AVMediaTypeAudio, std::move(segments)));
  }
  /// What comes out of one track alone.
  std::vector<float> mixedTrack(std::vector<MediaSegment> segments) {
    setup.audioTracks.clear();
    add(std::move(segments));
    return mixed();
  }
  static std::shared_ptr<FakeFile> levelFile(float level) {
    return FakeFile::audio("level", 44100, [=](int64_t, int) { return level; });
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
  const struct {
    const char* what;
    CMTime target, media;
    int64_t firstSample;  ///< of the output that has sound
    int64_t sourceFrame;  ///< that lies there
  } rows[] = {
      {"whole samples", seconds(1, 30), seconds(7, 44100), 1470, 7},
      {"late by less than a sample", seconds(3, 88200), kCMTimeZero, 2, 1},
      {"a trim between samples", kCMTimeZero, seconds(1, 24), 0, 1838},
      {"both between samples", seconds(1, 24), seconds(1001, 24000), 1838, 1840},
      {"before the media", kCMTimeZero, seconds(-10, 44100), 0, -10},
  };
  for (const auto& row : rows) {
    const auto out = mixedTrack({segment(own, row.target, seconds(1000, 44100), row.media)});
    ASSERT_EQ(static_cast<int64_t>(out.size() / 2), row.firstSample + 1000) << row.what;
    for (int64_t i = 0; i < 2 * (row.firstSample + 1000); ++i) {
      const float expected = i / 2 < row.firstSample ? 0.0f : identity(row.sourceFrame + i / 2 - row.firstSample, i % 2);
      ASSERT_EQ(out[static_cast<size_t>(i)], expected) << row.what << ", sample " << i / 2;
    }
  }
}

TEST_F(AudioMixerTest, CutsAtTheExactSampleAndIsSilentInGaps) {
  const auto out =
      mixedTrack({segment(own, kCMTimeZero, seconds(1001, 30000), seconds(1)), emptySegment(seconds(1001, 30000), seconds(1, 10)),
                  segment(own, seconds(4001, 30000), seconds(1, 10), seconds(5))});
  // 1001/30000 s are 1471.47 samples, 4001/30000 s 5881.47.
  ASSERT_EQ(out.size() / 2, 10292u);
  for (int64_t i = 0; i < 10292; ++i) {
    const float expected = i < 1472 ? identity(44100 + i, 0) : i < 5882 ? 0.0f : identity(5 * 44100 + i - 5881, 0);
    ASSERT_EQ(out[static_cast<size_t>(2 * i)], expected) << i;
  }
}

TEST_F(AudioMixerTest, OutputEndsWithTheRangeOrTheLastSound) {
  const struct {
    CMTimeRange range;
    CMTime soundStart, soundLength;
    int64_t frames;
  } rows[] = {
      {{kCMTimeZero, seconds(10)}, seconds(1), seconds(1, 30), 45570},
      {{kCMTimeZero, seconds(1, 30)}, kCMTimeZero, seconds(10), 1470},
      {{seconds(1, 7), seconds(1, 30)}, kCMTimeZero, seconds(10), 1470},
      {{kCMTimeZero, seconds(1001, 30000)}, kCMTimeZero, seconds(10), 1472},
      {{seconds(5), seconds(1)}, kCMTimeZero, seconds(5), 0},
      {{seconds(5), seconds(1)}, seconds(7), seconds(5), 44100},
  };
  for (const auto& row : rows) {
    setup.range = row.range;
    const auto out =
        mixedTrack({emptySegment(kCMTimeZero, row.soundStart), segment(own, row.soundStart, row.soundLength, kCMTimeZero)});
    EXPECT_EQ(static_cast<int64_t>(out.size() / 2), row.frames) << row.range.start << " " << row.range.duration;
  }
}

TEST_F(AudioMixerTest, TonesOfOtherRatesAndSpeedsStayInPlaceAndChangeTheirPitchWithTheSpeed) {
  const struct {
    int rate;
    double hertz;
    CMTime target, mediaStart, mediaLength;
  } rows[] = {{8000, 997, seconds(1), seconds(1, 3), seconds(1)},
              {48000, 997, seconds(1), seconds(1, 3), seconds(1)},
              {96000, 997, seconds(1), seconds(1, 3), seconds(1)},
              {48000, 440, seconds(4), kCMTimeZero, seconds(2)},
              {48000, 440, seconds(1, 5), kCMTimeZero, seconds(2)}};
  for (const auto& row : rows) {
    const auto out = mixedTrack({segment(toneFile(row.hertz, row.rate), kCMTimeZero, row.target, row.mediaStart, row.mediaLength)});
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
  add({segment(levelFile(0.5f), kCMTimeZero, seconds(1), kCMTimeZero)});
  add({segment(levelFile(0.25f), kCMTimeZero, seconds(1, 2), kCMTimeZero)});
  add({emptySegment(kCMTimeZero, seconds(1, 4)), segment(levelFile(0.5f), seconds(1, 4), seconds(1, 4), kCMTimeZero)});
  const auto out = mixed();
  for (size_t i = 0; i < out.size(); ++i) ASSERT_EQ(out[i], i < 2 * 11025 ? 0.75f : i < 2 * 22050 ? 1.0f : 0.5f) << i;
}

TEST_F(AudioMixerTest, VolumesFollowTheirKeysToTheSample) {
  const auto parameters = AVMutableAudioMixInputParameters::audioMixInputParametersWithTrack(nullptr);
  parameters->setTrackID(1);
  parameters->setVolume(0.25f, seconds(100, 44100));
  parameters->setVolumeRampFromStartVolume(0.25f, 0.75f, {seconds(1, 2), seconds(1)});
  const auto mix = AVMutableAudioMix::audioMix();
  mix->setInputParameters({parameters});
  setup.mix = mix;
  const auto out = mixedTrack({segment(levelFile(1), kCMTimeZero, seconds(2), kCMTimeZero)});
  for (size_t i = 0; i < out.size() / 2; ++i) {
    const double along = std::clamp((static_cast<double>(i) - 22050) / 44100, 0.0, 1.0);
    ASSERT_NEAR(out[2 * i], i < 100 ? 1 : 0.25 + 0.5 * along, 1e-5) << i;
  }
}

TEST_F(AudioMixerTest, ClipsThatWereOnlySplitAndBlocksOfAnySizeGiveTheSameSound) {
  const auto music = FakeFile::audio("music", 48000, [](int64_t frame, int channel) {
    return static_cast<float>(std::sin(0.001 * static_cast<double>(frame * (frame % 97)) + channel));
  });
  std::vector<MediaSegment> whole;
  for (int i = 0; i < 12; ++i) whole.push_back(segment(music, seconds(2 * i, 11), seconds(2, 11), seconds(i, 7), seconds(1, 7)));
  std::vector<MediaSegment> split = whole;
  whole.push_back(segment(own, seconds(24, 11), seconds(1, 3), seconds(2, 3)));
  for (int i = 0; i < 8; ++i) {
    const CMTime at = seconds(i, 24);
    split.push_back(segment(own, CMTimeAdd(seconds(24, 11), at), seconds(1, 24), CMTimeAdd(seconds(2, 3), at)));
  }
  const auto expected = mixedTrack(whole);
  for (const int frames : {1000, 511, 44100}) {
    setup.blockFrames = frames;
    EXPECT_EQ(mixedTrack(whole), expected) << frames;
    EXPECT_EQ(mixedTrack(split), expected) << frames << ", split";
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
  const auto out = mixedTrack(segments);
  // The second difference of a tone of the highest pitch: amplitude x (angle a sample)^2.
  const double angle = 2 * std::numbers::pi * 440 * 4 / 44100;
  for (size_t i = 4; i < out.size(); i += 2)
    ASSERT_LT(std::abs(out[i] - 2 * out[i - 2] + out[i - 4]), 0.5 * angle * angle) << i / 2;
}

TEST_F(AudioMixerTest, SoundComesIn16BitsWhereThatIsAsked) {
  add({segment(levelFile(0.5f), kCMTimeZero, seconds(1, 44100), kCMTimeZero)});
  add({segment(levelFile(-2), seconds(1, 44100), seconds(1, 44100), kCMTimeZero)});
  setup.format = {44100, 1, false};
  const auto sample = AudioMixer(setup).next(nullptr);
  EXPECT_EQ(CMSampleBufferGetDataBuffer(sample)->bytes(), (std::vector<uint8_t>{0x00, 0x40, 0x00, 0x80}));
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
  EXPECT_THAT(error->localizedDescription(), AllOf(HasSubstr("mute.wav"), HasSubstr("no decoder for that")));
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

}  // namespace
}  // namespace vidloom
