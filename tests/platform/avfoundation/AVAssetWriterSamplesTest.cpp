// What becomes of the samples that are appended.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>

#include "tests/platform/avfoundation/WriterTesting.h"
#include "tests/support/MovieProbe.h"

namespace vidloom::testing {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;

TEST(AVAssetWriterSamplesTest, TimesCountFromTheSessionStart) {
  const auto movie = freshDestination();
  const auto input = videoInput();
  const auto writer = startedWriter(movie, {input}, CMTimeMake(10, 1));
  // The second frame is on screen when the session starts.
  int index = 0;
  for (const CMTime& time : {CMTimeMake(9, 1), CMTimeMake(299, 30), CMTimeMake(301, 30), CMTimeMake(302, 30)}) {
    EXPECT_TRUE(input->appendSampleBuffer(numberedSample(index++, time)));
  }
  finishAndWait(writer);
  EXPECT_THAT(decodedFrameIndices(movie), ElementsAre(1, 2, 3));
  EXPECT_THAT(MovieProbe(movie).times("v:0"), ::testing::Pointwise(::testing::DoubleNear(1e-9), {0.0, 1 / 30.0, 2 / 30.0}));
}

TEST(AVAssetWriterSamplesTest, AFinishedInputTakesNothingMoreWhileTheOtherOneGoesOn) {
  const auto movie = freshDestination();
  const auto video = videoInput(), audio = audioInput();
  const auto writer = startedWriter(movie, {video, audio});
  EXPECT_TRUE(video->appendSampleBuffer(numberedSample(0, kCMTimeZero)));
  for (int i = 0; i < 2; ++i) video->markAsFinished();
  EXPECT_FALSE(video->isReadyForMoreMediaData());
  EXPECT_FALSE(video->appendSampleBuffer(numberedSample(1, CMTimeMake(3, 1))));
  EXPECT_TRUE(audio->appendSampleBuffer(soundSample(sine(440, 44100, 44100), 0, 44100)));
  finishAndWait(writer);
  EXPECT_THAT(decodedFrameIndices(movie), ElementsAre(0));
  EXPECT_EQ(MovieProbe(movie).number("a:0", "duration_ts"), 44100);
}

struct PcmKind {
  const char* name;
  int rate;
  uint32_t flags, bits, channels;
};

template <typename Value>
void addBytes(std::vector<uint8_t>& bytes, Value value) {
  const auto* first = reinterpret_cast<const uint8_t*>(&value);
  bytes.insert(bytes.end(), first, first + sizeof value);
}

/// Frames of the signal in that layout, every channel the same.
std::vector<uint8_t> pcm(const PcmKind& kind, const SoundSamples& stereo, int64_t first, int64_t count) {
  std::vector<uint8_t> bytes;
  const bool planar = (kind.flags & kAudioFormatFlagIsNonInterleaved) != 0;
  const bool isFloat = (kind.flags & kAudioFormatFlagIsFloat) != 0;
  for (int64_t i = 0; i < count * kind.channels; ++i) {
    const int64_t frame = first + (planar ? i % count : i / kind.channels);
    const float value = stereo[static_cast<size_t>(2 * frame)];
    if (kind.bits == 64) addBytes(bytes, double{value});
    if (kind.bits == 32 && isFloat) addBytes(bytes, value);
    if (kind.bits == 32 && !isFloat) addBytes(bytes, static_cast<int32_t>(std::lround(double{value} * 2147483000.0)));
    if (kind.bits == 16) addBytes(bytes, static_cast<int16_t>(std::lround(value * 32767)));
  }
  return bytes;
}

constexpr uint32_t kPackedFloat = kAudioFormatFlagIsFloat | kAudioFormatFlagIsPacked;
constexpr uint32_t kPackedInteger = kAudioFormatFlagIsSignedInteger | kAudioFormatFlagIsPacked;

TEST(AVAssetWriterSamplesTest, EveryKindOfPcmIsConvertedWithoutAShiftAtItsLevel) {
  for (const PcmKind& kind :
       {PcmKind{"float stereo", 44100, kPackedFloat, 32, 2}, PcmKind{"int16 mono 48k", 48000, kPackedInteger, 16, 1},
        PcmKind{"planar float 96k", 96000, kAudioFormatFlagIsFloat | kAudioFormatFlagIsNonInterleaved, 32, 2},
        PcmKind{"double mono 22k", 22050, kPackedFloat, 64, 1}, PcmKind{"int32 stereo 32k", 32000, kPackedInteger, 32, 2}}) {
    SCOPED_TRACE(kind.name);
    const AudioStreamBasicDescription stream{
        static_cast<double>(kind.rate), kAudioFormatLinearPCM, kind.flags, 0, 1, 0, kind.channels, kind.bits};
    const auto movie = freshDestination();
    const auto input = audioInput();
    const auto writer = startedWriter(movie, {input});
    const auto append = [&](const SoundSamples& sound, const CMTime& start) {
      for (int64_t done = 0, step = kind.rate / 13; done < kind.rate; done += step) {
        const int64_t count = std::min(step, kind.rate - done);
        const CMTime time = CMTimeAdd(start, CMTimeMake(done, kind.rate));
        ASSERT_TRUE(input->appendSampleBuffer(pcmSample(stream, pcm(kind, sound, done, count), count, time)));
      }
    };
    // A second with a burst, half a second of nothing, a second with a tone.
    append(soundWithBursts(kind.rate, {kind.rate / 2}, kind.rate), kCMTimeZero);
    append(sine(440, kind.rate, kind.rate), CMTimeMake(3, 2));
    finishAndWait(writer);
    EXPECT_EQ(MovieProbe(movie).number("a:0", "duration_ts"), 44100 * 5 / 2);
    const SoundSamples heard = decodedSound(movie);
    const auto bursts = burstStarts(heard, 44100);
    ASSERT_GE(bursts.size(), 1u);
    EXPECT_NEAR(static_cast<double>(bursts[0]), 22050, 30);
    double energy = 0, gap = 0;
    for (size_t i = 80000; i < 90000; ++i) energy += heard[2 * i] * heard[2 * i];
    for (size_t i = 50000; i < 60000; ++i) gap = std::max(gap, static_cast<double>(std::fabs(heard[2 * i])));
    EXPECT_NEAR(std::sqrt(energy / 10000), 0.5 / std::sqrt(2), 0.02);
    EXPECT_LT(gap, 0.001);
  }
}

TEST(AVAssetWriterSamplesTest, SamplesThatCannotBeUsedFailTheWriterByNameAndTime) {
  const AudioStreamBasicDescription pcmStream{44100, kAudioFormatLinearPCM, kPackedFloat, 8, 1, 8, 2, 32};
  const AudioStreamBasicDescription compressed{44100, kAudioFormatMPEG4AAC, 0, 0, 1024, 0, 2, 0};
  const std::vector<uint8_t> bytes(80);
  const CMTime two = CMTimeMake(2, 1);
  const struct {
    const char* name;
    bool video;
    CMSampleBufferRef sample;
    const char* words;
  } table[] = {{"same time", true, numberedSample(1, CMTimeMake(2, 2)), "times must increase"},
               {"earlier time", true, numberedSample(1, CMTimeMake(1, 2)), "times must increase"},
               {"no time", true, numberedSample(1, kCMTimeInvalid), "no time"},
               {"nothing", true, nullptr, "no sample"},
               {"picture in an audio input", false, numberedSample(1, two), "no sound"},
               {"sound in a video input", true, pcmSample(pcmStream, bytes, 10, two), "no picture"},
               {"short block", false, pcmSample(pcmStream, bytes, 11, two), "fewer"},
               {"compressed", false, pcmSample(compressed, bytes, 10, two), "linear PCM"}};
  for (const auto& row : table) {
    SCOPED_TRACE(row.name);
    const auto movie = freshDestination();
    const auto video = videoInput(), audio = audioInput();
    const auto writer = startedWriter(movie, {video, audio});
    ASSERT_TRUE(video->appendSampleBuffer(numberedSample(0, CMTimeMake(1, 1))));
    EXPECT_FALSE((row.video ? video : audio)->appendSampleBuffer(row.sample));
    ASSERT_TRUE(writer->error());
    EXPECT_THAT(writer->error()->localizedDescription(), HasSubstr(row.words));
    EXPECT_FALSE(video->appendSampleBuffer(numberedSample(2, CMTimeMake(3, 1))));
    finishAndWait(writer);
    EXPECT_EQ(writer->status(), AVAssetWriterStatusFailed);
    EXPECT_EQ(filesBeside(movie), 0u);
  }
}

}  // namespace
}  // namespace vidloom::testing
