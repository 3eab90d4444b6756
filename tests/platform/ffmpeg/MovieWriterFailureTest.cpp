// What stops a movie from being written, and that nothing stays behind.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <cmath>
#include <functional>

#include "tests/platform/ffmpeg/MovieMaker.h"
#include "vidloom/platform/avfoundation/AVError.h"
#include "vidloom/platform/ffmpeg/MovieWriter.h"

namespace vidloom::testing {
namespace {

using ::testing::HasSubstr;

TEST(MovieWriterFailureTest, AFullDiskIsAnErrorThatNamesFileAndCauseAndLeavesNothing) {
  // Met before the end or only there.
  for (const auto& [bytes, frames, whileAppending] :
       {std::tuple{400'000, 8, false}, {0, 2, false}, {1'000'000, 200, true}, {6'000'000, 200, true}}) {
    SCOPED_TRACE(bytes);
    const auto destination = freshDestination("limited.mp4");
    ErrorKeeper error;
    {
      const FileSizeLimit limit(static_cast<rlim_t>(bytes));
      const auto writer = MovieWriter::create(destination, heavyVideo(), std::nullopt, nullptr);
      ASSERT_TRUE(writer);
      bool appended = true;
      for (int i = 0; appended && i < frames; ++i) appended = appendNoise(*writer, i, error.slot());
      EXPECT_EQ(appended, !whileAppending);
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

TEST(MovieWriterFailureTest, EncoderSettingsThatCannotBeHonouredAreRefusedWithTheReason) {
  const std::pair<const char*, std::function<void(VideoEncoderOptions&)>> rows[] = {
      {"hasty", [](auto& encoder) { encoder.preset = "hasty"; }},
      {"crf", [](auto& encoder) { encoder.crf = 52; }},
      {"crf", [](auto& encoder) { encoder.crf = NAN; }},
      {"threads", [](auto& encoder) { encoder.threads = -1; }},
  };
  for (const auto& [reason, spoil] : rows) {
    MovieWriter::VideoSettings settings = smallVideo();
    spoil(settings.encoder);
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
