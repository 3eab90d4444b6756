#include "vidloom/platform/ffmpeg/FrameTimes.h"

#include <gtest/gtest.h>

#include <vector>

namespace vidloom::testing {
namespace {

struct Row {
  std::vector<CMTime> times;
  CMTime end;
  int64_t scale;
  std::vector<int64_t> ticks;  ///< with the end as the last
};

TEST(FrameTimesTest, TheCoarsestTimescaleHoldsEveryTime) {
  const std::vector<Row> table{
      {{kCMTimeZero, CMTimeMake(20, 600), CMTimeMake(40, 600)}, CMTimeMake(60, 600), 30, {0, 1, 2, 3}},
      {{CMTimeMake(5, 1), CMTimeMake(151001, 30000)}, CMTimeMake(152002, 30000), 30000, {150000, 151001, 152002}},
      {{kCMTimeZero, CMTimeMake(1, 24), CMTimeMake(1, 15)}, CMTimeMake(1, 10), 120, {0, 5, 8, 12}},
      {{kCMTimeZero, CMTimeMake(1, 1'000'003), CMTimeMake(1, 7)}, CMTimeMake(1, 1), 1'000'000, {0, 1, 142857, 1'000'000}},
      {{CMTimeMake(1, 3)}, CMTimeMake(1, 3), 3, {1, 2}}};
  for (const Row& row : table) {
    FrameTimes times;
    for (const CMTime& time : row.times) times.append(time);
    times.setEnd(row.end);
    std::vector<int64_t> ticks;
    for (size_t i = 0; i < times.count(); ++i) ticks.push_back(times[i]);
    ticks.push_back(times.end());
    EXPECT_EQ(times.scale(), row.scale);
    EXPECT_EQ(ticks, row.ticks);
  }
}

TEST(FrameTimesTest, AStepThatIsTooLongMakesTheTimescaleCoarser) {
  FrameTimes times;
  times.append(kCMTimeZero);
  times.append(CMTimeMake(1, 1'000'000));
  times.append(CMTimeMake(36'000, 1));
  times.setEnd(CMTimeMake(36'001, 1));
  times.limitSteps(1 << 26);
  EXPECT_LT(times[0], times[1]);
  EXPECT_LE(times[2] - times[1], 1 << 26);
  EXPECT_NEAR(static_cast<double>(times[2]) / static_cast<double>(times.scale()), 36'000, 0.001);
  EXPECT_NEAR(static_cast<double>(times.end()) / static_cast<double>(times.scale()), 36'001, 0.001);
}

TEST(FrameTimesTest, RefiningKeepsTheTimes) {
  FrameTimes times;
  times.append(CMTimeMake(1, 30));
  times.setEnd(CMTimeMake(2, 30));
  times.refineTo(10'000);
  EXPECT_EQ(times.scale(), 15360);
  EXPECT_EQ(times[0], 512);
  EXPECT_EQ(times.end(), 1024);
}

}  // namespace
}  // namespace vidloom::testing
