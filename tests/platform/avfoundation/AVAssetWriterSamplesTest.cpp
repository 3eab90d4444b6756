// What becomes of the samples that are appended.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>

#include "tests/platform/avfoundation/WriterTesting.h"
#include "tests/support/MovieProbe.h"
#include "vidloom/platform/avfoundation/AVError.h"

namespace vidloom::testing {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;

/// Draws a frame's index into a BGRA buffer, the way a host draws.
void drawIndex(const CVPixelBufferRef& buffer, int index) {
  std::vector<uint8_t> luma(static_cast<size_t>(writerWidth) * writerHeight);
  drawFrameIndex(index, writerWidth, writerHeight, luma.data(), writerWidth);
  CVPixelBufferLockBaseAddress(buffer, 0);
  auto* rows = static_cast<uint8_t*>(CVPixelBufferGetBaseAddress(buffer));
  for (size_t y = 0; y < writerHeight; ++y) {
    uint8_t* row = rows + y * CVPixelBufferGetBytesPerRow(buffer);
    for (size_t x = 0; x < writerWidth; ++x) {
      std::memset(row + 4 * x, luma[y * writerWidth + x], 3);
      row[4 * x + 3] = 255;
    }
  }
  CVPixelBufferUnlockBaseAddress(buffer, 0);
}

TEST(AVAssetWriterSamplesTest, OneBufferDrawnAgainAndAgainGivesDifferentFrames) {
  const auto movie = freshDestination();
  const auto input = videoInput();
  const auto writer = startedWriter(movie, {input});
  CVPixelBufferRef buffer;
  CVPixelBufferCreate(writerWidth, writerHeight, kCVPixelFormatType_32BGRA, {}, &buffer);
  std::vector<int> expected;
  for (int i = 0; i < 40; ++i) {
    drawIndex(buffer, 3 * i);
    ASSERT_TRUE(input->appendSampleBuffer(bufferSample(buffer, CMTimeMake(i, 30))));
    expected.push_back(3 * i);
  }
  finishAndWait(writer);
  EXPECT_EQ(decodedFrameIndices(movie), expected);
}

TEST(AVAssetWriterSamplesTest, TimesCountFromTheSessionStart) {
  const auto movie = freshDestination();
  const auto input = videoInput();
  const auto writer = startedWriter(movie, {input}, CMTimeMake(10, 1));
  // The second frame is on screen when the session starts.
  const std::vector<CMTime> times{CMTimeMake(9, 1), CMTimeMake(299, 30), CMTimeMake(301, 30), CMTimeMake(302, 30)};
  for (size_t i = 0; i < times.size(); ++i) {
    EXPECT_TRUE(input->appendSampleBuffer(numberedSample(static_cast<int>(i), times[i])));
  }
  finishAndWait(writer);
  EXPECT_THAT(decodedFrameIndices(movie), ElementsAre(1, 2, 3));
  EXPECT_THAT(MovieProbe(movie).times("v:0"), ::testing::Pointwise(::testing::DoubleNear(1e-9), {0.0, 1 / 30.0, 2 / 30.0}));
}

TEST(AVAssetWriterSamplesTest, AllVideoBeforeAnyAudioIsTakenInRealTimeMode) {
  const auto movie = freshDestination();
  const auto video = videoInput(), audio = audioInput();
  video->setExpectsMediaDataInRealTime(true);
  audio->setExpectsMediaDataInRealTime(true);
  const auto writer = startedWriter(movie, {video, audio});
  const SoundSamples sound = soundWithBursts(3 * 44100, {44100, 2 * 44100}, 44100);
  for (int i = 0; i < 90; ++i) {
    ASSERT_TRUE(video->isReadyForMoreMediaData());
    ASSERT_TRUE(video->appendSampleBuffer(numberedSample(i, CMTimeMake(i, 30))));
  }
  video->markAsFinished();
  EXPECT_FALSE(video->isReadyForMoreMediaData());
  EXPECT_FALSE(video->appendSampleBuffer(numberedSample(90, CMTimeMake(3, 1))));
  EXPECT_EQ(writer->status(), AVAssetWriterStatusWriting);
  for (int64_t frame = 0; frame < 3 * 44100; frame += 4410) {
    ASSERT_TRUE(audio->appendSampleBuffer(soundSample(sound, frame, 4410, 44100)));
  }
  audio->markAsFinished();
  audio->markAsFinished();
  finishAndWait(writer);
  EXPECT_EQ(writer->status(), AVAssetWriterStatusCompleted);
  EXPECT_EQ(decodedFrameIndices(movie).size(), 90u);
  const auto bursts = burstStarts(decodedSound(movie), 44100);
  ASSERT_EQ(bursts.size(), 2u);
  EXPECT_NEAR(static_cast<double>(bursts[0]), 44100, 30);
  EXPECT_EQ(MovieProbe(movie).number("a:0", "duration_ts"), 3 * 44100);
}

struct PcmKind {
  const char* name;
  double rate;
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
  for (int64_t i = 0; i < count * kind.channels; ++i) {
    const int64_t frame = first + (planar ? i % count : i / kind.channels);
    const float value = stereo[static_cast<size_t>(2 * frame)];
    if (kind.bits == 64)
      addBytes(bytes, double{value});
    else if ((kind.flags & kAudioFormatFlagIsFloat) != 0)
      addBytes(bytes, value);
    else if (kind.bits == 32)
      addBytes(bytes, static_cast<int32_t>(std::lround(double{value} * 2147483000.0)));
    else
      addBytes(bytes, static_cast<int16_t>(std::lround(value * 32767)));
  }
  return bytes;
}

constexpr uint32_t packedFloat = kAudioFormatFlagIsFloat | kAudioFormatFlagIsPacked;
constexpr uint32_t packedInteger = kAudioFormatFlagIsSignedInteger | kAudioFormatFlagIsPacked;

TEST(AVAssetWriterSamplesTest, EveryKindOfPcmIsConvertedWithoutAShiftAtItsLevel) {
  for (const PcmKind& kind :
       {PcmKind{"float stereo", 44100, packedFloat, 32, 2}, PcmKind{"int16 mono 48k", 48000, packedInteger, 16, 1},
        PcmKind{"planar float 96k", 96000, kAudioFormatFlagIsFloat | kAudioFormatFlagIsNonInterleaved, 32, 2},
        PcmKind{"double mono 22k", 22050, packedFloat, 64, 1}, PcmKind{"int32 stereo 32k", 32000, packedInteger, 32, 2}}) {
    SCOPED_TRACE(kind.name);
    const auto rate = static_cast<int>(kind.rate);
    const AudioStreamBasicDescription stream{kind.rate, kAudioFormatLinearPCM, kind.flags, 0, 1, 0, kind.channels, kind.bits};
    const auto movie = freshDestination();
    const auto input = audioInput();
    const auto writer = startedWriter(movie, {input});
    const auto append = [&](const SoundSamples& sound, const CMTime& start) {
      for (int64_t done = 0, step = rate / 13; done < rate; done += step) {
        const int64_t count = std::min(step, rate - done);
        const CMTime time = CMTimeAdd(start, CMTimeMake(done, rate));
        ASSERT_TRUE(input->appendSampleBuffer(pcmSample(stream, pcm(kind, sound, done, count), count, time)));
      }
    };
    // A second with a burst, half a second of nothing, a second with a tone.
    append(soundWithBursts(rate, {rate / 2}, rate), kCMTimeZero);
    append(sine(440, rate, rate), CMTimeMake(3, 2));
    finishAndWait(writer);
    ASSERT_EQ(writer->status(), AVAssetWriterStatusCompleted);
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

struct BadSample {
  std::string name;
  bool video;
  CMSampleBufferRef sample;
  std::string words;
};

TEST(AVAssetWriterSamplesTest, SamplesThatCannotBeUsedFailTheWriterByNameAndTime) {
  const SoundSamples sound = sine(440, 2048, 44100);
  AudioStreamBasicDescription compressed{44100, kAudioFormatMPEG4AAC, 0, 0, 1024, 0, 2, 0};
  const std::vector<BadSample> table{
      {"same time", true, numberedSample(1, CMTimeMake(2, 2)), "times must increase"},
      {"earlier time", true, numberedSample(1, CMTimeMake(1, 2)), "times must increase"},
      {"no time", true, numberedSample(1, kCMTimeInvalid), "no time"},
      {"nothing", true, nullptr, "no sample"},
      {"sound in a video input", true, soundSample(sound, 90000 - 89000, 1024, 44100), "times must increase"},
      {"picture in an audio input", false, numberedSample(1, CMTimeMake(2, 1)), "no sound"},
      {"short block", false,
       pcmSample({44100, kAudioFormatLinearPCM, packedFloat, 8, 1, 8, 2, 32}, std::vector<uint8_t>(80), 11, CMTimeMake(2, 1)),
       "fewer"},
      {"compressed", false, pcmSample(compressed, std::vector<uint8_t>(80), 10, CMTimeMake(2, 1)), "linear PCM"}};
  for (const BadSample& row : table) {
    const auto movie = freshDestination();
    const auto video = videoInput(), audio = audioInput();
    const auto writer = startedWriter(movie, {video, audio});
    ASSERT_TRUE(video->appendSampleBuffer(numberedSample(0, CMTimeMake(1, 1))));
    EXPECT_FALSE((row.video ? video : audio)->appendSampleBuffer(row.sample)) << row.name;
    EXPECT_EQ(writer->status(), AVAssetWriterStatusFailed) << row.name;
    ASSERT_TRUE(writer->error()) << row.name;
    EXPECT_THAT(writer->error()->localizedDescription(), HasSubstr(row.words)) << row.name;
    EXPECT_FALSE(video->appendSampleBuffer(numberedSample(2, CMTimeMake(3, 1)))) << row.name;
    finishAndWait(writer);
    EXPECT_EQ(writer->status(), AVAssetWriterStatusFailed) << row.name;
    EXPECT_EQ(filesBeside(movie), 0u) << row.name;
  }
}

}  // namespace
}  // namespace vidloom::testing
