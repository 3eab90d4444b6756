#include "vidloom/platform/reading/ExactTime.h"

#include <gtest/gtest.h>

#include <random>

#include "vidloom/platform/reading/FrameGrid.h"

namespace vidloom {
namespace {

TEST(ExactTime, RoundsToTicksDownAndUp) {
  const struct {
    CMTime time;
    int64_t ticksPerSecond, floor, ceil;
  } rows[] = {
      {CMTimeMake(1, 3), 10, 3, 4},
      {CMTimeMake(-1, 3), 10, -4, -3},
      {CMTimeMake(1001, 30000), 29999, 1000, 1001},
      {CMTimeMake(INT64_MAX, 2147483647), 1, 4294967298, 4294967299},
      {CMTimeMake(INT64_MAX, 1), 1000, INT64_MAX, INT64_MAX},
  };
  for (const auto& row : rows) {
    const ExactTime exact(row.time);
    EXPECT_EQ(exact.floorTicks(row.ticksPerSecond), row.floor) << row.time;
    if (row.floor == INT64_MAX) continue;
    EXPECT_EQ(exact.ceilTicks(row.ticksPerSecond), row.ceil) << row.time;
  }
}

TEST(ExactTime, ArithmeticWithCoprimeTimescalesLosesNothing) {
  std::mt19937_64 random(7);
  for (int i = 0; i < 2000; ++i) {
    const auto time = [&] {
      return CMTimeMake(static_cast<int64_t>(random() >> 8) - (INT64_C(1) << 55), static_cast<int32_t>(random() % 2147483646) + 1);
    };
    const CMTime a = time(), b = time();
    const CMTime c = CMTimeMake(static_cast<int64_t>(random() >> 3) + 1, static_cast<int32_t>(random() % 2147483646) + 1);
    const ExactTime result = ((ExactTime(a) + ExactTime(b)) * ExactTime(c) / ExactTime(c)) - ExactTime(b);
    ASSERT_EQ(result, ExactTime(a));
    ASSERT_EQ(result.floorTicks(a.timescale), a.value);
    ASSERT_EQ(result.ceilTicks(a.timescale), a.value);
    // The smallest step there is on that scale tells.
    ASSERT_GT(result, ExactTime(CMTimeMake(a.value - 1, a.timescale)));
    ASSERT_LT(result - ExactTime(1, INT64_MAX), ExactTime(a));
    ASSERT_EQ((result - ExactTime(1, INT64_MAX)).floorTicks(a.timescale), a.value - 1);
  }
}

TEST(FrameGrid, HasAFrameForEveryStepBeforeTheEnd) {
  const struct {
    CMTimeRange range;
    CMTime frameDuration;
    int64_t count;
    CMTime last;
  } rows[] = {
      {{kCMTimeZero, CMTimeMake(1, 1)}, CMTimeMake(1, 30), 30, CMTimeMake(29, 30)},
      {{kCMTimeZero, CMTimeMake(101, 100)}, CMTimeMake(1, 30), 31, CMTimeMake(30, 30)},
      {{CMTimeMake(1, 7), CMTimeMake(1, 30)}, CMTimeMake(1, 30), 1, CMTimeMake(1, 7)},
      {{CMTimeMake(1, 7), CMTimeMake(31, 900)}, CMTimeMake(1, 30), 2, CMTimeMake(37, 210)},
      {{kCMTimeZero, CMTimeMake(299 * 1001, 30000)}, CMTimeMake(1001, 30000), 299, CMTimeMake(298 * 1001, 30000)},
      {{kCMTimeZero, kCMTimeZero}, CMTimeMake(1, 30), 0, kCMTimeZero},
  };
  for (const auto& row : rows) {
    const FrameGrid grid(row.range, row.frameDuration);
    EXPECT_EQ(grid.count(), row.count) << row.range.start << " " << row.range.duration;
    if (row.count == 0) continue;
    EXPECT_EQ(CMTimeCompare(grid.time(row.count - 1), row.last), 0) << grid.time(row.count - 1);
  }
}

}  // namespace
}  // namespace vidloom
