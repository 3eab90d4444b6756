// What ends up in a written movie: pictures, times, sound, order.
#include "vidloom/platform/ffmpeg/MovieWriter.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <numeric>

#include "tests/platform/ffmpeg/MovieMaker.h"
#include "tests/support/MovieProbe.h"
#include "tests/support/SamplePictures.h"

namespace vidloom::testing {
namespace {

using ::testing::ElementsAre;
using ::testing::ElementsAreArray;

constexpr int sampleRate = 44100;

CMTime frameTime(int64_t index, int rateNumerator, int rateDenominator = 1) {
  return CMTimeMake(index * rateDenominator, rateNumerator);
}

void appendNumbered(MovieWriter& writer, int count, int rateNumerator, int rateDenominator = 1, const CMTime& start = kCMTimeZero) {
  ErrorKeeper error;
  for (int i = 0; i < count; ++i) {
    const CMTime time = CMTimeAdd(start, frameTime(i, rateNumerator, rateDenominator));
    ASSERT_TRUE(writer.appendVideo(numberedPicture(i, movieWidth, movieHeight), time, frameTime(1, rateNumerator, rateDenominator),
                                   error.slot()))
        << error.text();
  }
}

/// In pieces of odd lengths.
void appendSound(MovieWriter& writer, const SoundSamples& sound, const CMTime& start = kCMTimeZero) {
  ErrorKeeper error;
  const auto frames = static_cast<int64_t>(sound.size() / 2);
  for (int64_t done = 0; done < frames;) {
    const int count = static_cast<int>(std::min<int64_t>(1537, frames - done));
    const CMTime time = CMTimeAdd(start, CMTimeMake(done, sampleRate));
    ASSERT_TRUE(writer.appendAudio(sound.data() + done * 2, count, time, error.slot())) << error.text();
    done += count;
  }
}

std::filesystem::path finished(MovieWriter& writer, const std::filesystem::path& destination) {
  ErrorKeeper error;
  EXPECT_TRUE(writer.finish(error.slot())) << error.text();
  return destination;
}

std::unique_ptr<MovieWriter> created(const std::filesystem::path& destination, bool video, bool sound) {
  ErrorKeeper error;
  auto writer = MovieWriter::create(destination, video ? std::optional(smallVideo()) : std::nullopt,
                                    sound ? std::optional(MovieWriter::AudioSettings{}) : std::nullopt, error.slot());
  EXPECT_TRUE(writer) << error.text();
  return writer;
}

std::vector<int> indicesUpTo(int count) {
  std::vector<int> indices(static_cast<size_t>(count));
  std::iota(indices.begin(), indices.end(), 0);
  return indices;
}

/// By how many frames `heard` lags behind `played`, from -range to range.
int64_t lagOf(const SoundSamples& heard, const SoundSamples& played, int64_t range) {
  double best = -1;
  int64_t bestLag = 0;
  const auto frames = static_cast<int64_t>(std::min(heard.size(), played.size()) / 2);
  for (int64_t lag = -range; lag <= range; ++lag) {
    double sum = 0;
    for (int64_t i = range; i < frames - range; ++i)
      sum += heard[static_cast<size_t>(2 * (i + lag))] * played[static_cast<size_t>(2 * i)];
    if (sum > best) best = sum, bestLag = lag;
  }
  return bestLag;
}

TEST(MovieWriterTest, EveryPictureIsThereAtItsTimeAndSoundIsAsLongAsAsked) {
  struct Length {
    int frames, numerator, denominator;
  };
  for (const auto& [frames, numerator, denominator] :
       {Length{1, 30, 1}, Length{2, 30, 1}, Length{3, 25, 1}, Length{30, 60, 1}, Length{30, 15, 1}, Length{299, 30, 1},
        Length{2, 30000, 1001}, Length{48, 24000, 1001}, Length{1, 25, 1}}) {
    SCOPED_TRACE(std::to_string(frames) + " at " + std::to_string(numerator));
    const auto destination = freshDestination();
    const int64_t soundFrames = static_cast<int64_t>(frames) * denominator * sampleRate / numerator;
    const auto writer = created(destination, true, true);
    appendNumbered(*writer, frames, numerator, denominator);
    appendSound(*writer, sine(440, soundFrames, sampleRate));
    finished(*writer, destination);
    EXPECT_THAT(decodedFrameIndices(destination), ElementsAreArray(indicesUpTo(frames)));
    const MovieProbe probe(destination);
    const int64_t ticks = probe.timescale("v:0") * denominator / numerator;
    EXPECT_EQ(probe.timescale("v:0") * denominator % numerator, 0) << "frames do not lie on ticks";
    std::vector<int64_t> expected, times;
    for (int i = 0; i < frames; ++i) expected.push_back(i * ticks);
    for (const ProbedPacket& packet : probe.packets("v:0")) times.push_back(packet.presentation);
    EXPECT_THAT(times, ::testing::UnorderedElementsAreArray(expected));
    EXPECT_EQ(probe.number("v:0", "duration_ts"), frames * ticks);
    EXPECT_EQ(probe.number("a:0", "duration_ts"), soundFrames);
    EXPECT_EQ(probe.number("v:0", "start_pts"), 0);
    EXPECT_THAT(probe.boxes(), ElementsAre("ftyp", "moov", "mdat"));
    EXPECT_EQ(filesBeside(destination), 1u);
  }
}

TEST(MovieWriterTest, PicturesKeepTimesThatFollowNoRateAndTheLastItsOwnDuration) {
  const std::vector<CMTime> times{CMTimeMake(0, 1),     CMTimeMake(1, 30), CMTimeMake(1, 24), CMTimeMake(3, 10),
                                  CMTimeMake(401, 600), CMTimeMake(7, 10), CMTimeMake(2, 1),  CMTimeMake(2002001, 1000000)};
  const auto destination = freshDestination();
  const auto writer = created(destination, true, false);
  ErrorKeeper error;
  for (size_t i = 0; i < times.size(); ++i) {
    ASSERT_TRUE(writer->appendVideo(numberedPicture(static_cast<int>(i), movieWidth, movieHeight), times[i], CMTimeMake(1, 8),
                                    error.slot()))
        << error.text();
  }
  finished(*writer, destination);
  std::vector<double> expected;
  for (const CMTime& time : times) expected.push_back(CMTimeGetSeconds(time));
  const MovieProbe probe(destination);
  EXPECT_THAT(probe.times("v:0"), ::testing::Pointwise(::testing::DoubleNear(1e-9), expected));
  EXPECT_DOUBLE_EQ(static_cast<double>(probe.number("v:0", "duration_ts")) / static_cast<double>(probe.timescale("v:0")),
                   2.002001 + 0.125);
  EXPECT_THAT(decodedFrameIndices(destination), ElementsAreArray(indicesUpTo(static_cast<int>(times.size()))));
}

TEST(MovieWriterTest, PicturesThatAreHeldLongKeepTheirPlacesBetweenFineTimes) {
  struct Row {
    CMTime fine;  ///< between the first pictures and between the last
    int64_t heldSeconds;
    double tolerance;
  };
  const std::vector<Row> table{{CMTimeMake(1, 30), 100'000, 0},
                               {CMTimeMake(1001, 30000), 8000, 0},
                               {CMTimeMake(1, 10'000'000), 20, 0},
                               {CMTimeMake(1, 10'000'000), 430, 1e-4},
                               {CMTimeMake(1, 10'000'000), 100'000, 1e-2}};
  for (const Row& row : table) {
    const auto destination = freshDestination();
    const auto writer = created(destination, true, false);
    ErrorKeeper error;
    std::vector<double> expected;
    for (int i = 0; i < 9; ++i) {
      const CMTime steps = CMTimeMultiply(row.fine, i);
      const CMTime time = i < 5 ? steps : CMTimeAdd(steps, CMTimeMake(row.heldSeconds, 1));
      expected.push_back(CMTimeGetSeconds(time));
      ASSERT_TRUE(writer->appendVideo(numberedPicture(i, movieWidth, movieHeight), time, row.fine, error.slot())) << error.text();
    }
    finished(*writer, destination);
    const MovieProbe probe(destination);
    const std::vector<double> times = probe.times("v:0");
    EXPECT_THAT(times, ::testing::Pointwise(::testing::DoubleNear(row.tolerance + 1e-9), expected)) << row.heldSeconds;
    EXPECT_EQ(std::adjacent_find(times.begin(), times.end(), std::greater_equal<>()), times.end()) << row.heldSeconds;
    EXPECT_THAT(decodedFrameIndices(destination), ElementsAreArray(indicesUpTo(9)));
  }
}

TEST(MovieWriterTest, TracksThatBeginLateBeginLateInTheFile) {
  const auto destination = freshDestination();
  const auto writer = created(destination, true, true);
  appendNumbered(*writer, 12, 30, 1, CMTimeMake(5, 1));
  appendSound(*writer, sine(440, 4410, sampleRate), CMTimeMake(11, 2));
  finished(*writer, destination);
  const MovieProbe probe(destination);
  EXPECT_DOUBLE_EQ(probe.times("v:0").front(), 5);
  EXPECT_DOUBLE_EQ(std::stod(probe.field("v:0", "start_time")), 5);
  EXPECT_DOUBLE_EQ(std::stod(probe.field("a:0", "start_time")), 5.5);
  EXPECT_THAT(decodedFrameIndices(destination), ElementsAreArray(indicesUpTo(12)));
}

TEST(MovieWriterTest, SoundStartsExactlyAtZeroAfterDecoding) {
  const auto destination = freshDestination();
  const auto writer = created(destination, false, true);
  const SoundSamples played = noise(30000, 7);
  appendSound(*writer, played);
  finished(*writer, destination);
  const SoundSamples heard = decodedSound(destination);
  EXPECT_EQ(lagOf(heard, played, 40), 0);
  EXPECT_GE(heard.size() / 2, 30000u);
  EXPECT_LT(heard.size() / 2, 30000u + 1024u);
}

TEST(MovieWriterTest, GapsInTheSoundBecomeSilenceAndOverlapsAreCut) {
  const auto destination = freshDestination();
  const auto writer = created(destination, false, true);
  appendSound(*writer, soundWithBursts(10000, {4000}, sampleRate));
  appendSound(*writer, soundWithBursts(10000, {3000}, sampleRate), CMTimeMake(20000, sampleRate));
  appendSound(*writer, soundWithBursts(10000, {6000}, sampleRate), CMTimeMake(25000, sampleRate));
  finished(*writer, destination);
  EXPECT_EQ(MovieProbe(destination).number("a:0", "duration_ts"), 35000);
  const auto starts = burstStarts(decodedSound(destination), sampleRate);
  ASSERT_EQ(starts.size(), 3u);
  const std::vector<int64_t> expected{4000, 23000, 31000};
  for (size_t i = 0; i < expected.size(); ++i) EXPECT_NEAR(static_cast<double>(starts[i]), static_cast<double>(expected[i]), 30);
}

TEST(MovieWriterTest, AllPicturesBeforeAnySoundComeOutInterleaved) {
  const auto destination = freshDestination();
  const auto writer = created(destination, true, true);
  ErrorKeeper error;
  appendNumbered(*writer, 240, 30);
  EXPECT_TRUE(writer->endVideo(error.slot())) << error.text();
  EXPECT_TRUE(writer->endVideo(error.slot())) << "a second time is harmless";
  appendSound(*writer, sine(300, 8 * sampleRate, sampleRate));
  finished(*writer, destination);
  const MovieProbe probe(destination);
  std::vector<std::pair<int64_t, double>> places;
  for (const std::string stream : {"v:0", "a:0"}) {
    const auto scale = static_cast<double>(probe.timescale(stream));
    for (const ProbedPacket& packet : probe.packets(stream)) {
      places.emplace_back(packet.position, static_cast<double>(packet.decode) / scale);
    }
  }
  std::sort(places.begin(), places.end());
  double latest = 0;
  for (const auto& [position, seconds] : places) {
    EXPECT_GT(seconds, latest - 1.01) << "at byte " << position;
    latest = std::max(latest, seconds);
  }
}

TEST(MovieWriterTest, MoviesThatDoNotFitInMemoryComeOutWhole) {
  const auto destination = freshDestination();
  ErrorKeeper error;
  MovieWriter::VideoSettings settings = smallVideo(640, 360);
  settings.encoder.preset = "ultrafast";
  settings.encoder.crf = 2;
  const auto writer = MovieWriter::create(destination, settings, MovieWriter::AudioSettings{}, error.slot());
  for (int i = 0; i < 60; ++i) {
    ASSERT_TRUE(
        writer->appendVideo(noisyPicture(static_cast<uint32_t>(i), 640, 360), frameTime(i, 30), frameTime(1, 30), error.slot()));
  }
  appendSound(*writer, noise(2 * sampleRate, 3));
  finished(*writer, destination);
  EXPECT_GT(std::filesystem::file_size(destination), 10u << 20);
  std::string decoded;
  EXPECT_EQ(runProgram({"ffmpeg", "-v", "error", "-xerror", "-i", destination.string(), "-f", "framecrc", "-"}, &decoded), 0);
  EXPECT_EQ(MovieProbe(destination).packets("v:0").size(), 60u);
  EXPECT_EQ(filesBeside(destination), 1u);
}

TEST(MovieWriterTest, TheSameInputGivesTheSameFile) {
  std::vector<std::string> files;
  for (int run = 0; run < 2; ++run) {
    const auto destination = freshDestination();
    const auto writer = created(destination, true, true);
    appendNumbered(*writer, 45, 30);
    appendSound(*writer, noise(sampleRate, 5));
    files.push_back(readFile(finished(*writer, destination)));
  }
  EXPECT_TRUE(files[0] == files[1]);
  EXPECT_EQ(files[0].find("Lavc"), std::string::npos);
}

TEST(MovieWriterTest, AnEarlierFileIsReplacedOnlyWhenTheMovieIsCompleteAlsoUnderALongName) {
  const auto destination = freshDestination(std::string(246, 'n').append(".mp4"));
  for (const bool replaced : {false, true}) {
    const std::string before = readFile(destination);
    const auto writer = created(destination, true, false);
    appendNumbered(*writer, replaced ? 3 : 2, 30);
    EXPECT_EQ(readFile(destination), before);
    finished(*writer, destination);
    EXPECT_EQ(decodedFrameIndices(destination), indicesUpTo(replaced ? 3 : 2));
    EXPECT_EQ(filesBeside(destination), 1u);
  }
}

TEST(MovieWriterTest, ThePictureIsLetGoWhenItIsEncoded) {
  const auto destination = freshDestination();
  const auto writer = created(destination, true, false);
  ErrorKeeper error;
  for (int i = 0; i < 40; ++i) {
    const PictureRef picture = numberedPicture(i, movieWidth, movieHeight);
    ASSERT_TRUE(writer->appendVideo(picture, frameTime(i, 30), frameTime(1, 30), error.slot()));
    EXPECT_EQ(picture.use_count(), 1);
  }
}

}  // namespace
}  // namespace vidloom::testing
