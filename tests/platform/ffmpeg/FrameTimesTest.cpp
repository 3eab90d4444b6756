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

std::vector<int64_t> ticksOf(const FrameTimes& times) {
  std::vector<int64_t> ticks;
  for (size_t i = 0; i < times.count(); ++i) ticks.push_back(times[i]);
  ticks.push_back(times.end());
  return ticks;
}

TEST(FrameTimesTest, TheCoarsestTimescaleHoldsEveryTime) {
  const std::vector<Row> table{
      {{kCMTimeZero, CMTimeMake(20, 600), CMTimeMake(40, 600)}, CMTimeMake(60, 600), 30, {0, 1, 2, 3}},
      {{CMTimeMake(5, 1), CMTimeMake(151001, 30000)}, CMTimeMake(152002, 30000), 30000, {150000, 151001, 152002}},
      {{kCMTimeZero, CMTimeMake(1, 24), CMTimeMake(1, 15)}, CMTimeMake(1, 10), 120, {0, 5, 8, 12}},
      {{kCMTimeZero, CMTimeMake(1, 10'000'019), CMTimeMake(1, 7)},
       CMTimeMake(1, 1),
       FrameTimes::maximumScale,
       {0, 1, 1'428'571, 10'000'000}},
      {{CMTimeMake(1, 3)}, CMTimeMake(1, 3), 3, {1, 2}}};
  for (const Row& row : table) {
    FrameTimes times;
    for (const CMTime& time : row.times) times.append(time);
    times.setEnd(row.end);
    EXPECT_EQ(times.scale(), row.scale);
    EXPECT_EQ(ticksOf(times), row.ticks);
  }
}

TEST(FrameTimesTest, ASpanThatIsTooLongMakesTheTimescaleCoarserAndRoundsOnlyWhatItMust) {
  struct Coarsening {
    std::vector<CMTime> times;
    int64_t maximumTicks;  ///< of the span from the last time but one to the last
    int64_t scale;
    std::vector<int64_t> ticks;
  };
  const std::vector<Coarsening> table{
      {{kCMTimeZero, CMTimeMake(1, 30), CMTimeMake(100, 1)}, 2'000'000, 15'360, {0, 512, 1'536'000, 1'551'360}},
      {{kCMTimeZero, CMTimeMake(1, 30), CMTimeMake(100, 1)}, 10'000, 90, {0, 3, 9000, 9090}},
      {{kCMTimeZero, CMTimeMake(1, 30), CMTimeMake(100, 1)}, 3000, 30, {0, 1, 3000, 3030}},
      {{kCMTimeZero, CMTimeMake(1, 30), CMTimeMake(100, 1)}, 1000, 10, {0, 1, 1000, 1010}},
      {{kCMTimeZero, CMTimeMake(1, 1'000'000), CMTimeMake(2, 1'000'000), CMTimeMake(1000, 1)},
       1'000'000,
       1000,
       {0, 1, 2, 1'000'000, 1'001'000}}};
  for (const Coarsening& row : table) {
    FrameTimes times;
    for (const CMTime& time : row.times) times.append(time);
    times.setEnd(CMTimeAdd(row.times.back(), CMTimeMake(1, 1)));
    times.refineTo(10'000);
    times.coarsen(times[times.count() - 1] - times[times.count() - 2], row.maximumTicks);
    EXPECT_EQ(times.scale(), row.scale);
    EXPECT_EQ(ticksOf(times), row.ticks);
  }
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
