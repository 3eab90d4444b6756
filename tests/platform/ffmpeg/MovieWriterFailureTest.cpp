// What stops a movie from being written, and that nothing stays behind.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>

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

/// Lowers the process' file-size limit for as long as it lives.
class FileSizeLimit {
 public:
  explicit FileSizeLimit(rlim_t bytes) {
    getrlimit(RLIMIT_FSIZE, &before_);
    const rlimit lowered{bytes, before_.rlim_max};
    setrlimit(RLIMIT_FSIZE, &lowered);
  }
  ~FileSizeLimit() { setrlimit(RLIMIT_FSIZE, &before_); }

 private:
  rlimit before_{};
};

std::unique_ptr<MovieWriter> heavyWriter(const std::filesystem::path& destination) {
  MovieWriter::VideoSettings settings = smallVideo(640, 360);
  settings.encoder.preset = "ultrafast";
  settings.encoder.crf = 1;
  return MovieWriter::create(destination, settings, std::nullopt, nullptr);
}

bool appendNoise(MovieWriter& writer, int frame, std::optional<NSError>* error) {
  return writer.appendVideo(noisyPicture(static_cast<uint32_t>(frame), 640, 360), CMTimeMake(frame, 30), CMTimeMake(1, 30), error);
}

struct Limit {
  rlim_t bytes;
  int frames;
  bool whileAppending;  ///< whether it is met before the end
};

class DiskFull : public ::testing::TestWithParam<Limit> {};

TEST_P(DiskFull, IsAnErrorThatNamesFileAndCauseAndLeavesNothing) {
  const auto [bytes, frames, whileAppending] = GetParam();
  const auto destination = freshDestination("limited.mp4");
  ErrorKeeper error;
  {
    const FileSizeLimit limit(bytes);
    const auto writer = heavyWriter(destination);
    ASSERT_TRUE(writer);
    bool appended = true;
    for (int i = 0; appended && i < frames; ++i) appended = appendNoise(*writer, i, error.slot());
    EXPECT_EQ(appended, !whileAppending);
    EXPECT_FALSE(appended && writer->finish(error.slot()));
  }
  ASSERT_TRUE(error.error);
  EXPECT_EQ(error.error->code(), AVErrorDiskFull);
  EXPECT_THAT(error.error->localizedDescription(), HasSubstr("limited.mp4"));
  ASSERT_TRUE(error.error->underlyingError());
  EXPECT_EQ(error.error->underlyingError()->domain(), NSPOSIXErrorDomain);
  EXPECT_EQ(error.error->underlyingError()->code(), EFBIG);
  EXPECT_EQ(filesBeside(destination), 0u);
}

INSTANTIATE_TEST_SUITE_P(Table, DiskFull,
                         ::testing::Values(Limit{400'000, 8, false}, Limit{0, 2, false}, Limit{1'000'000, 200, true},
                                           Limit{6'000'000, 200, true}));

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

TEST(MovieWriterFailureTest, AWriterThatIsDroppedLeavesNothing) {
  const auto destination = freshDestination();
  auto writer = heavyWriter(destination);
  ErrorKeeper error;
  for (int i = 0; i < 60; ++i) ASSERT_TRUE(appendNoise(*writer, i, error.slot())) << error.text();
  writer.reset();
  EXPECT_EQ(filesBeside(destination), 0u);
}

TEST(MovieWriterFailureTest, AMovieOfNothingIsAnError) {
  const auto destination = freshDestination();
  const auto writer = MovieWriter::create(destination, smallVideo(), MovieWriter::AudioSettings{}, nullptr);
  ErrorKeeper error;
  EXPECT_FALSE(writer->finish(error.slot()));
  EXPECT_THAT(error.text(), HasSubstr("movie.mp4"));
  EXPECT_FALSE(std::filesystem::exists(destination));
}

struct BadTime {
  CMTime first, second;
};

TEST(MovieWriterFailureTest, TimesThatDoNotIncreaseAreRefusedByName) {
  const std::vector<BadTime> table{{CMTimeMake(1, 30), CMTimeMake(1, 30)}, {CMTimeMake(1, 30), CMTimeMake(2, 60)},
                                   {CMTimeMake(1, 2), CMTimeMake(1, 3)},   {kCMTimeZero, kCMTimeInvalid},
                                   {kCMTimeZero, kCMTimePositiveInfinity}, {CMTimeMake(3, 30), CMTimeMake(-1, 30)}};
  for (const BadTime& row : table) {
    const auto writer = MovieWriter::create(freshDestination(), smallVideo(), std::nullopt, nullptr);
    ErrorKeeper error;
    ASSERT_TRUE(writer->appendVideo(numberedPicture(0, movieWidth, movieHeight), row.first, CMTimeMake(1, 30), error.slot()));
    EXPECT_FALSE(writer->appendVideo(numberedPicture(1, movieWidth, movieHeight), row.second, CMTimeMake(1, 30), error.slot()));
    std::ostringstream time;
    time << row.second;
    EXPECT_THAT(error.text(), HasSubstr(time.str()));
  }
}

TEST(MovieWriterFailureTest, SettingsThatCannotBeHonouredAreRefusedWithTheReason) {
  struct Row {
    std::optional<MovieWriter::VideoSettings> video;
    std::optional<MovieWriter::AudioSettings> audio;
    std::string reason;
  };
  std::vector<Row> table(8, Row{smallVideo(), MovieWriter::AudioSettings{}, ""});
  table[0] = {std::nullopt, std::nullopt, "neither video nor sound"};
  table[1].video->encoder.preset = "hasty", table[1].reason = "hasty";
  table[2].video->encoder.crf = 52, table[2].reason = "crf";
  table[3].video->encoder.crf = NAN, table[3].reason = "crf";
  table[4].video->encoder.threads = -1, table[4].reason = "threads";
  table[5].video->width = 1, table[5].reason = "1x96";
  table[6].audio->sampleRate = 44000, table[6].reason = "44000";
  table[7].audio->channels = 9, table[7].reason = "9 channels";
  for (const Row& row : table) {
    ErrorKeeper error;
    const auto destination = freshDestination();
    EXPECT_FALSE(MovieWriter::create(destination, row.video, row.audio, error.slot())) << row.reason;
    EXPECT_THAT(error.text(), HasSubstr(row.reason));
    EXPECT_EQ(filesBeside(destination), 0u);
  }
}

TEST(MovieWriterFailureTest, AFolderThatTakesNoFilesIsNamedWithTheCause) {
  ErrorKeeper error;
  EXPECT_FALSE(MovieWriter::create("/proc/movie.mp4", smallVideo(), std::nullopt, error.slot()));
  EXPECT_THAT(error.text(), HasSubstr("/proc/movie.mp4"));
  EXPECT_FALSE(MovieWriter::create(scratchFolder() / "none" / "movie.mp4", smallVideo(), std::nullopt, error.slot()));
  ASSERT_TRUE(error.error->underlyingError());
  EXPECT_EQ(error.error->underlyingError()->code(), ENOENT);
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
