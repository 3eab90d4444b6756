// What stops a movie from being written, and that nothing stays behind.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <cmath>

#include "tests/platform/ffmpeg/MovieMaker.h"
#include "tests/support/SamplePictures.h"
#include "vidloom/platform/avfoundation/AVError.h"
#include "vidloom/platform/dispatch/dispatch.h"
#include "vidloom/platform/ffmpeg/MovieWriter.h"

namespace vidloom::testing {
namespace {

using ::testing::HasSubstr;

std::unique_ptr<MovieWriter> heavyWriter(const std::filesystem::path& destination) {
  MovieWriter::VideoSettings settings = smallVideo(640, 360);
  settings.encoder.preset = "ultrafast";
  settings.encoder.crf = 1;
  return MovieWriter::create(destination, settings, std::nullopt, nullptr);
}

bool appendNoise(MovieWriter& writer, int frame, std::optional<NSError>* error) {
  return writer.appendVideo(noisyPicture(static_cast<uint32_t>(frame), 640, 360), CMTimeMake(frame, 30), CMTimeMake(1, 30), error);
}

TEST(MovieWriterFailureTest, AFullDiskIsAnErrorThatNamesFileAndCauseAndLeavesNothing) {
  struct Row {
    rlim_t bytes;
    int frames;
    bool whileAppending;  ///< whether it is met before the end
  };
  for (const Row& row : {Row{400'000, 8, false}, Row{0, 2, false}, Row{1'000'000, 200, true}, Row{6'000'000, 200, true}}) {
    SCOPED_TRACE(row.bytes);
    const auto destination = freshDestination("limited.mp4");
    ErrorKeeper error;
    {
      const FileSizeLimit limit(row.bytes);
      const auto writer = heavyWriter(destination);
      ASSERT_TRUE(writer);
      bool appended = true;
      for (int i = 0; appended && i < row.frames; ++i) appended = appendNoise(*writer, i, error.slot());
      EXPECT_EQ(appended, !row.whileAppending);
      EXPECT_FALSE(appended && writer->finish(error.slot()));
    }
    ASSERT_TRUE(error.error && error.error->underlyingError());
    EXPECT_EQ(error.error->code(), AVErrorDiskFull);
    EXPECT_THAT(error.error->localizedDescription(), HasSubstr("limited.mp4"));
    EXPECT_EQ(error.error->underlyingError()->domain(), NSPOSIXErrorDomain);
    EXPECT_EQ(error.error->underlyingError()->code(), EFBIG);
    EXPECT_EQ(filesBeside(destination), 0u);
  }
}

TEST(MovieWriterFailureTest, ACancelFromAnotherQueueEndsTheWritingAndLeavesNothing) {
  for (int round = 0; round < 4; ++round) {
    const auto destination = freshDestination();
    auto writer = heavyWriter(destination);
    ASSERT_TRUE(writer);
    const auto queue = dispatch_queue_create("test.cancel", DISPATCH_QUEUE_SERIAL);
    const auto group = dispatch_group_create();
    ErrorKeeper error;
    bool more = true;
    for (int i = 0; more && i < 10'000; ++i) {
      if (i == 10 * round) dispatch_group_async(group, queue, [&] { writer->cancel(); });
      more = appendNoise(*writer, i, error.slot());
    }
    dispatch_group_wait(group, DISPATCH_TIME_FOREVER);
    EXPECT_FALSE(more);
    ASSERT_TRUE(error.error);
    EXPECT_EQ(error.error->code(), AVErrorOperationCancelled) << error.text();
    EXPECT_FALSE(writer->finish(error.slot()));
    writer.reset();
    EXPECT_EQ(filesBeside(destination), 0u);
  }
}

TEST(MovieWriterFailureTest, EncoderSettingsThatCannotBeHonouredAreRefusedWithTheReason) {
  std::vector<std::pair<std::string, MovieWriter::VideoSettings>> table(
      {{"hasty", smallVideo()}, {"crf", smallVideo()}, {"crf", smallVideo()}, {"threads", smallVideo()}});
  table[0].second.encoder.preset = "hasty";
  table[1].second.encoder.crf = 52;
  table[2].second.encoder.crf = NAN;
  table[3].second.encoder.threads = -1;
  for (const auto& [reason, settings] : table) {
    ErrorKeeper error;
    const auto destination = freshDestination();
    EXPECT_FALSE(MovieWriter::create(destination, settings, std::nullopt, error.slot())) << reason;
    EXPECT_THAT(error.text(), HasSubstr(reason));
    EXPECT_EQ(filesBeside(destination), 0u);
  }
}

TEST(MovieWriterFailureTest, SoundThatIsNoNumberIsSilence) {
  const auto destination = freshDestination();
  const auto writer = MovieWriter::create(destination, std::nullopt, MovieWriter::AudioSettings{}, nullptr);
  std::vector<float> sound(20000, NAN);
  for (size_t i = 10000; i < sound.size(); ++i) sound[i] = i % 2 == 0 ? INFINITY : -1e30F;
  ErrorKeeper error;
  ASSERT_TRUE(writer->appendAudio(sound.data(), 10000, kCMTimeZero, error.slot())) << error.text();
  ASSERT_TRUE(writer->finish(error.slot())) << error.text();
  const SoundSamples heard = decodedSound(destination);
  ASSERT_GE(heard.size(), 20000u);
  EXPECT_LT(std::fabs(heard[4000]), 0.01F);
}

}  // namespace
}  // namespace vidloom::testing
