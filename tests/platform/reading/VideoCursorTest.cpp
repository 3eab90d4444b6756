#include "vidloom/platform/reading/VideoCursor.h"

#include <gtest/gtest.h>

#include "tests/platform/reading/FakeMedia.h"

namespace vidloom {
namespace {

using namespace testing;

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
  const auto film = FakeFile::steadyVideo("film", 30011, 1001, 300);
  // On a timescale that nothing else divides: trimmed by 7/1001 s, placed at 1/3 s, then a gap, then the same file again at double
  // speed.
  const std::vector<MediaSegment> segments{
      emptySegment(kCMTimeZero, seconds(1, 3)), segment(film, seconds(1, 3), seconds(1), seconds(7, 1001)),
      emptySegment(seconds(4, 3), seconds(1, 2)), segment(film, seconds(11, 6), seconds(1), seconds(30030, 30011), seconds(2))};
  VideoCursor cursor(0, segments, pool);
  struct Row {
    ExactTime time;
    int frame;
  };
  const ExactTime little(1, INT64_C(1000000000000));
  const ExactTime start(1, 3), again(11, 6);
  const auto frameTime = [](int n) { return ExactTime(CMTimeMake(1001 * n, 30011)); };
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

TEST_F(VideoCursorTest, KeepsOneDecoderThroughARampAndDecodesNoFrameTwice) {
  const auto film = FakeFile::steadyVideo("film", 30, 1, 300);
  std::vector<MediaSegment> segments;
  for (int i = 0; i < 100; ++i) segments.push_back(segment(film, seconds(i, 5), seconds(1, 5), seconds(i, 10), seconds(1, 10)));
  VideoCursor cursor(0, segments, pool);
  for (int n = 0; n < 600; ++n) EXPECT_EQ(shown(cursor, ExactTime(n, 30)), n / 2);
  EXPECT_EQ(log->opened, 1);
}

}  // namespace
}  // namespace vidloom
