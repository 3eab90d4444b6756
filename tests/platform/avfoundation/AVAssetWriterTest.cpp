// States of a writer and what it leaves on disk.
#include "vidloom/platform/avfoundation/AVAssetWriter.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <cmath>
#include <tuple>

#include "tests/platform/avfoundation/WriterTesting.h"
#include "tests/support/MovieProbe.h"
#include "vidloom/platform/avfoundation/AVError.h"

namespace vidloom::testing {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;

TEST(AVAssetWriterTest, NothingIsCreatedBeforeTheFileIsComplete) {
  const auto movie = freshMovie();
  const auto input = videoInput();
  const auto writer = writerOf(movie, {input});
  EXPECT_EQ(filesIn(movie.parent_path()), 0u);
  EXPECT_EQ(writer->status(), AVAssetWriterStatusUnknown);
  EXPECT_FALSE(input->appendSampleBuffer(numberedSample(0, kCMTimeZero)));
  ASSERT_TRUE(writer->startWriting());
  EXPECT_EQ(writer->status(), AVAssetWriterStatusWriting);
  EXPECT_FALSE(writer->startWriting());
  writer->startSessionAtSourceTime(kCMTimeZero);
  EXPECT_TRUE(input->appendSampleBuffer(numberedSample(0, kCMTimeZero)));
  EXPECT_FALSE(std::filesystem::exists(movie));
  finishAndWait(writer);
  EXPECT_EQ(writer->status(), AVAssetWriterStatusCompleted);
  EXPECT_FALSE(writer->error());
  EXPECT_THAT(decodedFrameIndices(movie), ElementsAre(0));
  EXPECT_FALSE(input->appendSampleBuffer(numberedSample(1, CMTimeMake(1, 30))));
  writer->cancelWriting();
  EXPECT_EQ(writer->status(), AVAssetWriterStatusCompleted);
  EXPECT_EQ(filesIn(movie.parent_path()), 1u);
}

TEST(AVAssetWriterTest, BadDestinationsAreErrorsThatNameThem) {
  std::optional<NSError> error;
  EXPECT_FALSE(AVAssetWriter::initWithURL({}, AVFileTypeMPEG4, &error));
  EXPECT_TRUE(error);
  EXPECT_FALSE(AVAssetWriter::initWithURL(freshMovie(), "public.unknown", &error));
  EXPECT_EQ(error->code(), AVErrorFileFormatNotRecognized);
  EXPECT_FALSE(AVAssetWriter::initWithURL(scratchFolder() / "gone" / "movie.mp4", AVFileTypeMPEG4, &error));
  EXPECT_THAT(error->localizedDescription(), HasSubstr("gone"));
  EXPECT_EQ(error->underlyingError()->code(), ENOENT);
}

TEST(AVAssetWriterTest, StartingOverAnExistingFileFailsAndKeepsIt) {
  const auto movie = freshMovie();
  const auto writer = writerOf(movie, {videoInput()});
  writeFile(std::filesystem::relative(movie, scratchFolder()), "precious");
  EXPECT_FALSE(writer->startWriting());
  EXPECT_EQ(writer->status(), AVAssetWriterStatusFailed);
  ASSERT_TRUE(writer->error());
  EXPECT_EQ(writer->error()->code(), AVErrorFileAlreadyExists);
  EXPECT_EQ(readFile(movie), "precious");
}

TEST(AVAssetWriterTest, AFolderThatTakesNoFilesFailsAtTheStart) {
  const auto writer = writerOf("/proc/movie.mp4", {videoInput()});
  EXPECT_FALSE(writer->startWriting());
  EXPECT_EQ(writer->status(), AVAssetWriterStatusFailed);
  EXPECT_THAT(writer->error()->localizedDescription(), HasSubstr("/proc/movie.mp4"));
  EXPECT_TRUE(writer->error()->underlyingError());
}

TEST(AVAssetWriterTest, TakesOneInputOfEachKindWhoseSettingsFit) {
  const auto writer = writerOf(freshMovie(), {});
  struct Row {
    AVMediaType type;
    NSDictionary settings;
    bool fits;
  };
  NSDictionary noCodec = videoSettings(), noHeight = videoSettings(), noRate = audioSettings(), otherFormat = audioSettings();
  NSDictionary otherCodec = videoSettings();
  otherCodec[AVVideoCodecKey] = std::string("hvc1");
  noCodec.erase(AVVideoCodecKey);
  noHeight.erase(AVVideoHeightKey);
  noRate.erase(AVSampleRateKey);
  otherFormat[AVFormatIDKey] = static_cast<int64_t>(kAudioFormatLinearPCM);
  const std::vector<Row> table{{AVMediaTypeVideo, videoSettings(853.9, 481), true},
                               {AVMediaTypeVideo, videoSettings(0, 480), false},
                               {AVMediaTypeVideo, videoSettings(2, 16384), true},
                               {AVMediaTypeVideo, videoSettings(1, 480), false},
                               {AVMediaTypeVideo, videoSettings(640, 16385), false},
                               {AVMediaTypeVideo, videoSettings(640, 1e300), false},
                               {AVMediaTypeVideo, otherCodec, false},
                               {AVMediaTypeVideo, noCodec, false},
                               {AVMediaTypeVideo, noHeight, false},
                               {AVMediaTypeVideo, audioSettings(), false},
                               {AVMediaTypeAudio, audioSettings(), true},
                               {AVMediaTypeAudio, noRate, false},
                               {AVMediaTypeAudio, otherFormat, false},
                               {"text", {}, false}};
  for (const Row& row : table) {
    EXPECT_EQ(writer->canAddInput(AVAssetWriterInput::initWithMediaType(row.type, row.settings)), row.fits) << row.type;
  }
  const auto input = videoInput();
  writer->addInput(input);
  EXPECT_FALSE(writer->canAddInput(input));
  EXPECT_FALSE(writer->canAddInput(videoInput()));
  EXPECT_FALSE(writer->canAddInput(nullptr));
  EXPECT_FALSE(writerOf(freshMovie(), {})->canAddInput(input)) << "belongs to another writer";
  ASSERT_TRUE(writer->startWriting());
  EXPECT_FALSE(writer->canAddInput(audioInput()));
}

TEST(AVAssetWriterTest, TakesTheSoundThatCanBeEncodedAndWritesIt) {
  struct Row {
    double rate;
    int64_t channels;
    double bitRate;
    bool fits;
  };
  std::vector<Row> table{{0, 2, 128'000, false},       {-44100, 2, 128'000, false}, {44101, 2, 128'000, false},
                         {44100.5, 2, 128'000, false}, {48, 2, 128'000, false},     {192'000, 2, 128'000, false},
                         {44100, 0, 128'000, false},   {44100, 7, 128'000, false},  {44100, 9, 128'000, false},
                         {44100, 2, 3999, false},      {44100, 2, 4000, true},      {44100, 2, 1'000'000, true},
                         {44100, 2, 1'000'001, false}, {44100, 2, 1e300, false},    {44100, 2, std::nan(""), false}};
  for (const double rate : {7350, 8000, 11025, 12000, 16000, 22050, 24000, 32000, 44100, 48000, 64000, 88200, 96000}) {
    table.push_back({rate, 2, 64'000, true});
  }
  for (const int64_t channels : {1, 3, 4, 5, 6, 8}) table.push_back({48000, channels, 256'000, true});
  for (const Row& row : table) {
    NSDictionary settings = audioSettings();
    settings[AVSampleRateKey] = row.rate;
    settings[AVNumberOfChannelsKey] = row.channels;
    settings[AVEncoderBitRateKey] = row.bitRate;
    const auto input = AVAssetWriterInput::initWithMediaType(AVMediaTypeAudio, settings);
    const auto movie = freshMovie();
    const auto words = ::testing::PrintToString(std::make_tuple(row.rate, row.channels, row.bitRate));
    EXPECT_EQ(writerOf(movie, {})->canAddInput(input), row.fits) << words;
    if (!row.fits) continue;
    const auto writer = startedWriter(movie, {input});
    ASSERT_TRUE(input->appendSampleBuffer(soundSample(sine(440, 4410, 44100), 0, 4410, 44100))) << words;
    finishAndWait(writer);
    EXPECT_EQ(writer->status(), AVAssetWriterStatusCompleted) << words;
    EXPECT_EQ(MovieProbe(movie).number("a:0", "channels"), row.channels) << words;
    EXPECT_EQ(MovieProbe(movie).number("a:0", "sample_rate"), static_cast<int64_t>(row.rate)) << words;
  }
}

TEST(AVAssetWriterTest, AnInputThatBelongsToNoWriterIsReadyAndTakesNothing) {
  const auto input = audioInput();
  EXPECT_TRUE(input->isReadyForMoreMediaData());
  EXPECT_FALSE(input->appendSampleBuffer(soundSample(sine(440, 1024, 44100), 0, 1024, 44100)));
  input->markAsFinished();
  EXPECT_FALSE(input->isReadyForMoreMediaData());
}

TEST(AVAssetWriterTest, FinishingWithoutWritingCallsTheHandlerAndChangesNothing) {
  const auto unstarted = writerOf(freshMovie(), {videoInput()});
  finishAndWait(unstarted);
  EXPECT_EQ(unstarted->status(), AVAssetWriterStatusUnknown);
  const auto cancelled = startedWriter(freshMovie(), {videoInput()});
  cancelled->cancelWriting();
  finishAndWait(cancelled);
  EXPECT_EQ(cancelled->status(), AVAssetWriterStatusCancelled);
}

TEST(AVAssetWriterTest, AMovieOfNothingFails) {
  const auto movie = freshMovie();
  const auto writer = startedWriter(movie, {videoInput(), audioInput()});
  finishAndWait(writer);
  EXPECT_EQ(writer->status(), AVAssetWriterStatusFailed);
  ASSERT_TRUE(writer->error());
  EXPECT_THAT(writer->error()->localizedDescription(), HasSubstr("movie.mp4"));
  EXPECT_EQ(filesIn(movie.parent_path()), 0u);
}

TEST(AVAssetWriterTest, ATrackWithoutSamplesIsLeftOut) {
  const auto movie = freshMovie();
  const auto video = videoInput();
  const auto writer = startedWriter(movie, {video, audioInput()});
  EXPECT_TRUE(video->appendSampleBuffer(numberedSample(5, kCMTimeZero)));
  finishAndWait(writer);
  EXPECT_EQ(writer->status(), AVAssetWriterStatusCompleted);
  EXPECT_EQ(MovieProbe(movie).field("a:0", "codec_name"), "");
  EXPECT_THAT(decodedFrameIndices(movie), ElementsAre(5));
}

TEST(AVAssetWriterTest, ReleasedWhileWritingItLeavesNothing) {
  const auto movie = freshMovie();
  const auto input = videoInput();
  auto writer = startedWriter(movie, {input});
  EXPECT_TRUE(input->appendSampleBuffer(numberedSample(0, kCMTimeZero)));
  writer.reset();
  EXPECT_FALSE(input->appendSampleBuffer(numberedSample(1, CMTimeMake(1, 30))));
  EXPECT_EQ(filesIn(movie.parent_path()), 0u);
}

TEST(AVAssetWriterTest, ReleasedWhileFinishingItStillCompletes) {
  const auto movie = freshMovie();
  const auto input = videoInput();
  auto writer = startedWriter(movie, {input});
  for (int i = 0; i < 30; ++i) input->appendSampleBuffer(numberedSample(i, CMTimeMake(i, 30)));
  const auto finished = dispatch_semaphore_create(0);
  writer->finishWritingWithCompletionHandler([finished] { dispatch_semaphore_signal(finished); });
  writer.reset();
  dispatch_semaphore_wait(finished, DISPATCH_TIME_FOREVER);
  EXPECT_EQ(decodedFrameIndices(movie).size(), 30u);
}

TEST(AVAssetWriterTest, ACancelAtAnyMomentEndsAppendsAndLeavesNothing) {
  for (int round = 0; round < 8; ++round) {
    const auto movie = freshMovie();
    const auto input = videoInput();
    const auto writer = startedWriter(movie, {input});
    const auto group = dispatch_group_create();
    const auto appending = dispatch_queue_create("test.append", DISPATCH_QUEUE_SERIAL);
    std::atomic<int> appended{0};
    dispatch_group_async(group, appending, [&] {
      for (int i = 0; writer->status() == AVAssetWriterStatusWriting; ++i) {
        if (input->appendSampleBuffer(numberedSample(i, CMTimeMake(i, 30)))) ++appended;
      }
    });
    while (appended < 12 * round) {
    }
    if (round % 2 == 1) writer->finishWritingWithCompletionHandler({});
    writer->cancelWriting();
    const AVAssetWriterStatus status = writer->status();
    EXPECT_TRUE(status == AVAssetWriterStatusCancelled || (round % 2 == 1 && status == AVAssetWriterStatusCompleted)) << status;
    dispatch_group_wait(group, DISPATCH_TIME_FOREVER);
    EXPECT_EQ(filesIn(movie.parent_path()), status == AVAssetWriterStatusCompleted ? 1u : 0u);
    EXPECT_FALSE(writer->error());
  }
}

TEST(AVAssetWriterTest, CancelledBeforeTheStartItWritesNothing) {
  const auto movie = freshMovie();
  const auto writer = writerOf(movie, {videoInput()});
  writer->cancelWriting();
  EXPECT_EQ(writer->status(), AVAssetWriterStatusCancelled);
  EXPECT_FALSE(writer->startWriting());
  EXPECT_EQ(filesIn(movie.parent_path()), 0u);
}

}  // namespace
}  // namespace vidloom::testing
