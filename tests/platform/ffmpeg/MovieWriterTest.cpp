// What ends up in a written movie: pictures, times, sound, order.
#include "vidloom/platform/ffmpeg/MovieWriter.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <numeric>

#include "tests/platform/ffmpeg/MovieMaker.h"
#include "tests/support/MovieProbe.h"
#include "tests/support/SamplePictures.h"

namespace vidloom::testing {
namespace {

using ::testing::DoubleNear;
using ::testing::ElementsAre;
using ::testing::ElementsAreArray;

constexpr int sampleRate = 44100;

void append(MovieWriter& writer, int index, const CMTime& time, const CMTime& duration) {
  ErrorKeeper error;
  ASSERT_TRUE(writer.appendVideo(numberedPicture(index, movieWidth, movieHeight), time, duration, error.slot())) << error.text();
}

void appendNumbered(MovieWriter& writer, int count, int rateNumerator, int rateDenominator = 1, const CMTime& start = kCMTimeZero) {
  const CMTime duration = CMTimeMake(rateDenominator, rateNumerator);
  for (int i = 0; i < count; ++i) append(writer, i, CMTimeAdd(start, CMTimeMultiply(duration, i)), duration);
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

TEST(MovieWriterTest, EveryPictureIsThereAtItsTimeAndSoundIsAsLongAsAsked) {
  for (const auto& [frames, numerator, denominator] :
       {std::tuple{1, 30, 1}, {2, 30, 1}, {3, 25, 1}, {299, 30, 1}, {2, 30000, 1001}, {48, 24000, 1001}}) {
    SCOPED_TRACE(std::to_string(frames) + " at " + std::to_string(numerator));
    const auto destination = freshDestination();
    const int64_t soundFrames = int64_t{frames} * denominator * sampleRate / numerator;
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

/// Five pictures, and four more that long after them.
std::vector<CMTime> heldTimes(const CMTime& fine, int64_t heldSeconds) {
  std::vector<CMTime> times;
  for (int i = 0; i < 9; ++i) times.push_back(CMTimeAdd(CMTimeMultiply(fine, i), CMTimeMake(i < 5 ? 0 : heldSeconds, 1)));
  return times;
}

TEST(MovieWriterTest, PicturesKeepTimesThatFollowNoRateAndTheLastItsOwnDuration) {
  const CMTime fine = CMTimeMake(1, 10'000'000);
  const struct {
    std::vector<CMTime> times;
    CMTime duration;
    double tolerance;
  } rows[] = {
      {{CMTimeMake(0, 1), CMTimeMake(1, 30), CMTimeMake(1, 24), CMTimeMake(3, 10), CMTimeMake(401, 600), CMTimeMake(7, 10),
        CMTimeMake(2, 1), CMTimeMake(2002001, 1000000)},
       CMTimeMake(1, 8),
       1e-9},
      {heldTimes(CMTimeMake(1, 30), 100'000), CMTimeMake(1, 30), 1e-9},
      {heldTimes(CMTimeMake(1001, 30000), 8000), CMTimeMake(1001, 30000), 1e-9},
      {heldTimes(fine, 20), fine, 1e-9},
      {heldTimes(fine, 430), fine, 1e-4},
      {heldTimes(fine, 100'000), fine, 1e-2},
  };
  for (const auto& [given, duration, tolerance] : rows) {
    SCOPED_TRACE(CMTimeGetSeconds(given.back()));
    const auto destination = freshDestination();
    const auto writer = created(destination, true, false);
    std::vector<double> expected;
    for (const CMTime& time : given) {
      append(*writer, static_cast<int>(expected.size()), time, duration);
      expected.push_back(CMTimeGetSeconds(time));
    }
    finished(*writer, destination);
    const MovieProbe probe(destination);
    const std::vector<double> times = probe.times("v:0");
    EXPECT_THAT(times, ::testing::Pointwise(::testing::DoubleNear(tolerance), expected));
    EXPECT_EQ(std::adjacent_find(times.begin(), times.end(), std::greater_equal<>()), times.end());
    const double length = static_cast<double>(probe.number("v:0", "duration_ts")) / static_cast<double>(probe.timescale("v:0"));
    EXPECT_NEAR(length, expected.back() + CMTimeGetSeconds(duration), tolerance);
    EXPECT_THAT(decodedFrameIndices(destination), ElementsAreArray(indicesUpTo(static_cast<int>(given.size()))));
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
  const SoundSamples heard = decodedSound(finished(*writer, destination));
  ASSERT_GE(heard.size(), played.size());
  std::vector<double> likeness;  // for every lag from -40 to 40 frames
  for (int lag = -80; lag <= 80; lag += 2)
    likeness.push_back(std::inner_product(played.begin() + 80, played.end() - 80, heard.begin() + 80 + lag, 0.0));
  EXPECT_EQ(std::max_element(likeness.begin(), likeness.end()) - likeness.begin(), 40);
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
  EXPECT_THAT(std::vector<double>(starts.begin(), starts.end()),
              ElementsAre(DoubleNear(4000, 30), DoubleNear(23000, 30), DoubleNear(31000, 30)));
}

TEST(MovieWriterTest, AllPicturesBeforeAnySoundComeOutInterleaved) {
  const auto destination = freshDestination();
  const auto writer = created(destination, true, true);
  appendNumbered(*writer, 240, 30);
  EXPECT_TRUE(writer->endVideo(nullptr));
  EXPECT_TRUE(writer->endVideo(nullptr)) << "a second time is harmless";
  appendSound(*writer, sine(300, 8 * sampleRate, sampleRate));
  finished(*writer, destination);
  const MovieProbe probe(destination);
  std::map<int64_t, double> secondsAt;
  for (const std::string stream : {"v:0", "a:0"}) {
    const auto scale = static_cast<double>(probe.timescale(stream));
    for (const ProbedPacket& packet : probe.packets(stream))
      secondsAt[packet.position] = static_cast<double>(packet.decode) / scale;
  }
  double latest = 0;
  for (const auto& [position, seconds] : secondsAt) {
    EXPECT_GT(seconds, latest - 1.01) << "at byte " << position;
    latest = std::max(latest, seconds);
  }
}

TEST(MovieWriterTest, MoviesThatDoNotFitInMemoryComeOutWhole) {
  const auto destination = freshDestination();
  const auto writer = MovieWriter::create(destination, heavyVideo(), MovieWriter::AudioSettings{}, nullptr);
  for (int i = 0; i < 60; ++i) ASSERT_TRUE(appendNoise(*writer, i, nullptr));
  appendSound(*writer, noise(2 * sampleRate, 3));
  finished(*writer, destination);
  EXPECT_GT(std::filesystem::file_size(destination), 10u << 20);
  EXPECT_EQ(runProgram({"ffmpeg", "-v", "error", "-xerror", "-i", destination.string(), "-f", "null", "-"}), 0);
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
  const auto writer = created(freshDestination(), true, false);
  for (int i = 0; i < 40; ++i) {
    const PictureRef picture = numberedPicture(i, movieWidth, movieHeight);
    ASSERT_TRUE(writer->appendVideo(picture, CMTimeMake(i, 30), CMTimeMake(1, 30), nullptr));
    EXPECT_EQ(picture.use_count(), 1);
  }
}

}  // namespace
}  // namespace vidloom::testing
