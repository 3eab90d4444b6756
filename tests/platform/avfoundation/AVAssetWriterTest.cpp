// States of a writer and what it leaves on disk.
#include "vidloom/platform/avfoundation/AVAssetWriter.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <cmath>
#include <fstream>

#include "tests/platform/avfoundation/WriterTesting.h"
#include "tests/support/MovieProbe.h"
#include "vidloom/platform/avfoundation/AVError.h"

namespace vidloom::testing {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;

TEST(AVAssetWriterTest, NothingIsCreatedBeforeTheFileIsComplete) {
  const auto movie = freshDestination();
  const auto input = videoInput();
  const auto writer = writerOf(movie, {input});
  EXPECT_EQ(filesBeside(movie), 0u);
  EXPECT_FALSE(input->appendSampleBuffer(numberedSample(0, kCMTimeZero)));
  ASSERT_TRUE(writer->startWriting());
  EXPECT_FALSE(writer->startWriting());
  writer->startSessionAtSourceTime(kCMTimeZero);
  EXPECT_TRUE(input->appendSampleBuffer(numberedSample(0, kCMTimeZero)));
  EXPECT_FALSE(std::filesystem::exists(movie));
  finishAndWait(writer);
  EXPECT_THAT(decodedFrameIndices(movie), ElementsAre(0));
  EXPECT_FALSE(input->appendSampleBuffer(numberedSample(1, CMTimeMake(1, 30))));
  writer->cancelWriting();
  EXPECT_EQ(writer->status(), AVAssetWriterStatusCompleted);
  EXPECT_EQ(filesBeside(movie), 1u);
}

TEST(AVAssetWriterTest, BadDestinationsAreErrorsThatNameThem) {
  std::optional<NSError> error;
  EXPECT_FALSE(AVAssetWriter::initWithURL({}, AVFileTypeMPEG4, &error));
  EXPECT_TRUE(error);
  EXPECT_FALSE(AVAssetWriter::initWithURL(freshDestination(), "public.unknown", &error));
  EXPECT_EQ(error->code(), AVErrorFileFormatNotRecognized);
  EXPECT_FALSE(AVAssetWriter::initWithURL(scratchFolder() / "gone" / "movie.mp4", AVFileTypeMPEG4, &error));
  EXPECT_THAT(error->localizedDescription(), HasSubstr("gone"));
  EXPECT_EQ(error->underlyingError()->code(), ENOENT);
  const auto taken = freshDestination();
  for (const auto& movie : {taken, std::filesystem::path("/proc/movie.mp4")}) {
    const auto writer = writerOf(movie, {videoInput()});
    if (movie == taken) std::ofstream(movie) << "precious";
    EXPECT_FALSE(writer->startWriting());
    EXPECT_EQ(writer->status(), AVAssetWriterStatusFailed);
    ASSERT_TRUE(writer->error());
    EXPECT_THAT(writer->error()->localizedDescription(), HasSubstr(movie.string()));
    EXPECT_EQ(writer->error()->code() == AVErrorFileAlreadyExists, movie == taken);
  }
  EXPECT_EQ(readFile(taken), "precious");
}

TEST(AVAssetWriterTest, TakesOneInputOfEachKindWhoseSettingsFit) {
  const auto writer = writerOf(freshDestination(), {});
  const auto changed = [](NSDictionary settings, const std::string& key, const std::any& value) {
    settings[key] = value;
    return settings;
  };
  using Row = std::tuple<AVMediaType, NSDictionary, bool>;
  for (const auto& [type, settings, fits] :
       {Row{AVMediaTypeVideo, videoSettings(853.9, 481), true}, Row{AVMediaTypeVideo, videoSettings(0, 480), false},
        Row{AVMediaTypeVideo, videoSettings(2, 16384), true}, Row{AVMediaTypeVideo, videoSettings(1, 480), false},
        Row{AVMediaTypeVideo, videoSettings(640, 16385), false}, Row{AVMediaTypeVideo, videoSettings(640, 1e300), false},
        Row{AVMediaTypeVideo, changed(videoSettings(), AVVideoCodecKey, std::string("hvc1")), false},
        Row{AVMediaTypeVideo, changed(videoSettings(), AVVideoCodecKey, {}), false},
        Row{AVMediaTypeVideo, changed(videoSettings(), AVVideoHeightKey, {}), false}, Row{AVMediaTypeVideo, audioSettings(), false},
        Row{AVMediaTypeAudio, changed(audioSettings(), AVSampleRateKey, {}), false},
        Row{AVMediaTypeAudio, changed(audioSettings(), AVFormatIDKey, int64_t{kAudioFormatLinearPCM}), false},
        Row{"text", {}, false}}) {
    EXPECT_EQ(writer->canAddInput(AVAssetWriterInput::initWithMediaType(type, settings)), fits) << type;
  }
  const auto input = videoInput();
  writer->addInput(input);
  EXPECT_FALSE(writer->canAddInput(videoInput()));
  EXPECT_FALSE(writer->canAddInput(nullptr));
  EXPECT_FALSE(writerOf(freshDestination(), {})->canAddInput(input)) << "belongs to another writer";
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
  std::vector<Row> table{{44100, 2, 4000, true}, {44100, 2, 1'000'000, true}};
  for (const double bitRate : {3999., 1'000'001., 1e300, std::nan("")}) table.push_back({44100, 2, bitRate, false});
  for (const double rate : {0., -44100., 44101., 44100.5, 48., 192'000.}) table.push_back({rate, 2, 128'000, false});
  for (const int64_t channels : {0, 7, 9}) table.push_back({44100, channels, 128'000, false});
  for (const double rate : {7350, 8000, 11025, 12000, 16000, 22050, 24000, 32000, 44100, 48000, 64000, 88200, 96000}) {
    table.push_back({rate, 2, 64'000, true});
  }
  for (const int64_t channels : {1, 3, 4, 5, 6, 8}) table.push_back({48000, channels, 256'000, true});
  for (const Row& row : table) {
    SCOPED_TRACE(::testing::PrintToString(std::make_tuple(row.rate, row.channels, row.bitRate)));
    const auto input = AVAssetWriterInput::initWithMediaType(AVMediaTypeAudio, audioSettings(row.rate, row.channels, row.bitRate));
    const auto movie = freshDestination();
    EXPECT_EQ(writerOf(movie, {})->canAddInput(input), row.fits);
    if (!row.fits) continue;
    const auto writer = startedWriter(movie, {input});
    ASSERT_TRUE(input->appendSampleBuffer(soundSample(sine(440, 4410, 44100), 0, 4410)));
    finishAndWait(writer);
    EXPECT_EQ(MovieProbe(movie).number("a:0", "channels"), row.channels);
    EXPECT_EQ(MovieProbe(movie).number("a:0", "sample_rate"), static_cast<int64_t>(row.rate));
  }
}

TEST(AVAssetWriterTest, FinishingWithoutWritingCallsTheHandlerAndChangesNothing) {
  const auto writer = writerOf(freshDestination(), {videoInput()});
  finishAndWait(writer);
  EXPECT_EQ(writer->status(), AVAssetWriterStatusUnknown);
  writer->cancelWriting();
  EXPECT_FALSE(writer->startWriting());
  finishAndWait(writer);
  EXPECT_EQ(writer->status(), AVAssetWriterStatusCancelled);
}

TEST(AVAssetWriterTest, ATrackWithoutSamplesIsLeftOutAndAMovieOfNothingFails) {
  for (const bool withPicture : {true, false}) {
    const auto movie = freshDestination();
    const auto video = videoInput();
    const auto writer = startedWriter(movie, {video, audioInput()});
    EXPECT_TRUE(!withPicture || video->appendSampleBuffer(numberedSample(5, kCMTimeZero)));
    finishAndWait(writer);
    EXPECT_EQ(writer->status(), withPicture ? AVAssetWriterStatusCompleted : AVAssetWriterStatusFailed);
    EXPECT_EQ(filesBeside(movie), withPicture ? 1u : 0u);
    if (withPicture) {
      EXPECT_EQ(MovieProbe(movie).field("a:0", "codec_name"), "");
      EXPECT_THAT(decodedFrameIndices(movie), ElementsAre(5));
    } else {
      EXPECT_THAT(writer->error().value_or(NSError{}).localizedDescription(), HasSubstr("movie.mp4"));
    }
  }
}

TEST(AVAssetWriterTest, ReleasedWhileWritingItLeavesNothingButWhileFinishingItStillCompletes) {
  for (const bool finishing : {false, true}) {
    const auto movie = freshDestination();
    const auto input = videoInput();
    auto writer = startedWriter(movie, {input});
    for (int i = 0; i < 30; ++i) EXPECT_TRUE(input->appendSampleBuffer(numberedSample(i, CMTimeMake(i, 30))));
    const auto finished = dispatch_semaphore_create(finishing ? 0 : 1);
    if (finishing) writer->finishWritingWithCompletionHandler([finished] { dispatch_semaphore_signal(finished); });
    writer.reset();
    dispatch_semaphore_wait(finished, DISPATCH_TIME_FOREVER);
    EXPECT_FALSE(input->appendSampleBuffer(numberedSample(30, CMTimeMake(1, 1))));
    EXPECT_EQ(filesBeside(movie), finishing ? 1u : 0u);
    EXPECT_EQ(decodedFrameIndices(movie).size(), finishing ? 30u : 0u);
  }
}

TEST(AVAssetWriterTest, ACancelAtAnyMomentEndsAppendsAndLeavesNothing) {
  for (int round = 0; round < 8; ++round) {
    const auto movie = freshDestination();
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
    EXPECT_EQ(filesBeside(movie), status == AVAssetWriterStatusCompleted ? 1u : 0u);
    EXPECT_FALSE(writer->error());
  }
}

}  // namespace
}  // namespace vidloom::testing
