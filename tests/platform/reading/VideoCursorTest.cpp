#include "vidloom/platform/reading/VideoCursor.h"

#include <gtest/gtest.h>

#include <random>

#include "tests/platform/reading/FakeMedia.h"

namespace vidloom {
namespace {

using testing::DecoderLog;
using testing::emptySegment;
using testing::FakeFile;
using testing::fakeVideoOpener;
using testing::frameNumber;
using testing::seconds;
using testing::segment;

class VideoCursorTest : public ::testing::Test {
 protected:
  /// The number of the frame that a track made of these segments shows; -1 where it shows nothing.
  int shown(VideoCursor& cursor, const ExactTime& time) {
    pool.beginRound();
    std::optional<NSError> error;
    const auto source = cursor.pictureAt(time, &error);
    EXPECT_FALSE(error);
    return source ? frameNumber(*source->picture) : -1;
  }

  const std::shared_ptr<DecoderLog> log = std::make_shared<DecoderLog>();
  VideoDecoderPool pool{fakeVideoOpener(log)};
};

TEST_F(VideoCursorTest, ShowsTheLastFrameAtOrBeforeTheMappedTime) {
  const auto film = FakeFile::steadyVideo("film", 30000, 1001, 300);
  // Trimmed by 7/1001 s, placed at 1/3 s, then a gap, then the same file again at double speed.
  const std::vector<MediaSegment> segments{
      emptySegment(kCMTimeZero, seconds(1, 3)), segment(film, seconds(1, 3), seconds(1), seconds(7, 1001)),
      emptySegment(seconds(4, 3), seconds(1, 2)), segment(film, seconds(11, 6), seconds(1), seconds(1001, 1000), seconds(2))};
  VideoCursor cursor(0, segments, pool);
  struct Row {
    ExactTime time;
    int frame;
  };
  const ExactTime little(1, INT64_C(1000000000000));
  const ExactTime start(1, 3), again(11, 6);
  const auto frameTime = [](int n) { return ExactTime(CMTimeMake(1001 * n, 30000)); };
  const ExactTime trim(7, 1001), two(2, 1);
  const Row rows[] = {
      {ExactTime(0, 1), -1},
      {start - little, -1},
      {start, 0},
      {start + frameTime(1) - trim - little, 0},
      {start + frameTime(1) - trim, 1},
      {start + frameTime(20) - trim - little, 19},
      {start + frameTime(20) - trim, 20},
      {ExactTime(4, 3) - little, 30},
      {ExactTime(4, 3), -1},
      {again - little, -1},
      {again, 30},
      {again + (frameTime(31) - frameTime(30)) / two - little, 30},
      {again + (frameTime(31) - frameTime(30)) / two, 31},
      {again + ExactTime(1, 1) - little, 89},
      {again + ExactTime(1, 1), -1},
  };
  for (const Row& row : rows) EXPECT_EQ(shown(cursor, row.time), row.frame) << row.time.seconds();
  EXPECT_EQ(log->opened, 1);
}

/// floor(mediaStart + (time - targetStart) x mediaDuration / targetDuration) in ticks, everything in whole numbers.
int64_t naiveTick(__int128 time, __int128 timeScale, const MediaSegment& s, int64_t scale) {
  const __int128 commonScale = timeScale * s.target.start.timescale;
  const __int128 elapsed = time * s.target.start.timescale - s.target.start.value * timeScale;
  const __int128 numerator = (elapsed * s.media.duration.value * s.target.duration.timescale * s.media.start.timescale +
                              s.media.start.value * commonScale * s.media.duration.timescale * s.target.duration.value) *
                             scale;
  const __int128 denominator = commonScale * s.media.duration.timescale * s.target.duration.value * s.media.start.timescale;
  return static_cast<int64_t>(numerator / denominator);
}

TEST_F(VideoCursorTest, FindsEveryFrameOfVariableRateThroughRandomRamps) {
  std::mt19937 random(20240);
  for (int round = 0; round < 40; ++round) {
    std::vector<int64_t> ticks{0};
    while (ticks.size() < 400) ticks.push_back(ticks.back() + 1 + static_cast<int64_t>(random() % 90));
    const auto file = FakeFile::video("film", 997, ticks);
    std::vector<MediaSegment> segments;
    int64_t targetAt = 0, mediaAt = 0;
    for (int i = 0; i < 8; ++i) {
      const auto targetLength = static_cast<int64_t>(1 + random() % 3000), mediaLength = static_cast<int64_t>(1 + random() % 2000);
      segments.push_back(
          segment(file, seconds(targetAt, 1009), seconds(targetLength, 1009), seconds(mediaAt, 601), seconds(mediaLength, 601)));
      targetAt += targetLength;
      mediaAt += mediaLength;
    }
    VideoCursor cursor(0, segments, pool);
    for (int n = 0; n * int64_t{1001} * 1009 < targetAt * 30000; ++n) {
      const MediaSegment* inside = &segments.front();
      for (const MediaSegment& s : segments) {
        if (s.target.start.value * 30000 <= n * int64_t{1001} * 1009) inside = &s;
      }
      const int64_t tick = naiveTick(n * 1001, 30000, *inside, 997);
      const auto expected = std::upper_bound(ticks.begin(), ticks.end(), tick) - ticks.begin() - 1;
      ASSERT_EQ(shown(cursor, ExactTime(n * 1001, 30000)), expected) << "round " << round << " frame " << n;
    }
  }
}

TEST_F(VideoCursorTest, KeepsOneDecoderThroughARampAndDecodesNoFrameTwice) {
  const auto film = FakeFile::steadyVideo("film", 30, 1, 300);
  std::vector<MediaSegment> segments;
  for (int i = 0; i < 100; ++i) segments.push_back(segment(film, seconds(i, 5), seconds(1, 5), seconds(i, 10), seconds(1, 10)));
  VideoCursor cursor(0, segments, pool);
  for (int n = 0; n < 600; ++n) EXPECT_EQ(shown(cursor, ExactTime(n, 30)), n / 2);
  EXPECT_EQ(log->opened, 1);
}

TEST_F(VideoCursorTest, AnErrorNamesFileTimeAndCause) {
  VideoCursor cursor(0, {segment(FakeFile::video("hollow.mp4", 30, {}), kCMTimeZero, seconds(5), kCMTimeZero)}, pool);
  std::optional<NSError> error;
  EXPECT_FALSE(cursor.pictureAt(ExactTime(5, 2), &error));
  ASSERT_TRUE(error);
  for (const char* word : {"hollow.mp4", "2.5", "no picture in there"}) {
    EXPECT_NE(error->localizedDescription().find(word), std::string::npos) << *error;
  }
  EXPECT_TRUE(error->underlyingError());
}

}  // namespace
}  // namespace vidloom
