#include <gmock/gmock.h>

#include <cmath>

#include "tests/timeline/TimelineFixtures.h"
#include "vidloom/timeline/LUMGlobal.h"

namespace vidloom {
namespace {

using test::range;
using test::seconds;

TEST(Global, theExactTestIsClosedAndTheFrameTestForgivesAFrame) {
  const CMTimeRange second = range(0, 1), later = {CMTimeMake(1, 3), CMTimeMake(2, 3)};
  struct {
    CMTimeRange range;
    CMTime time;
    bool exactly, byFramesAt30;
  } const table[] = {
      {second, seconds(1), true, true},
      {second, CMTimeMake(-1, 600), false, true},
      {second, CMTimeMake(31, 30), false, false},
      {second, CMTimeMake(1033, 1000), false, true},
      {second, seconds(-5), false, true},
      {later, CMTimeMake(333'333'333, 1'000'000'000), false, false},
      {later, CMTimeMake(1, 3), true, true},
      {kCMTimeRangeInvalid, seconds(0), false, true},
      {second, kCMTimeInvalid, false, true},
      {second, kCMTimePositiveInfinity, false, false},
      {{seconds(0), kCMTimePositiveInfinity}, seconds(1e9), true, true},
  };
  for (const auto& row : table) {
    EXPECT_EQ(LUMGlobal::CMTIMERANGE_CONTAINS_TIME(row.range, row.time), row.exactly) << row.range << row.time;
    EXPECT_EQ(LUMGlobal::CMTIMERANGE_CONTAINS_TIME(30, row.range, row.time), row.byFramesAt30) << row.range << row.time;
  }
}

TEST(Global, rangesThatTouchIntersect) {
  struct {
    CMTimeRange a, b;
    bool intersect;
  } const table[] = {
      {range(0, 2), range(2, 1), true},         {range(2, 1), range(0, 2), true}, {range(0, 2), range(2.5, 1), false},
      {range(2.5, 1), range(0, 2), false},      {range(0, 9), range(2, 1), true}, {range(1, 0), range(1, 0), true},
      {kCMTimeRangeInvalid, range(0, 1), true},
  };
  for (const auto& row : table) EXPECT_EQ(LUMGlobal::CMTIMERANGE_IS_INTERSECT(row.a, row.b), row.intersect) << row.a << row.b;
}

TEST(Global, descriptionsPutTheTimescaleFirst) {
  EXPECT_EQ(LUMGlobal::CMTIME_DESCRIPTION(CMTimeMake(1001, 30000)), "300001001");
  EXPECT_EQ(LUMGlobal::CMTIME_DESCRIPTION(CMTimeMake(-5, 600)), "600-5");
  EXPECT_EQ(LUMGlobal::CMTIME_DESCRIPTION(CMTimeMake((int64_t{3} << 32) + 7, 1)), "17");
}

TEST(Global, orientationsComeFromTheAngleInWholeDegrees) {
  struct {
    double a, b;
    uint32_t code;
  } const table[] = {{1, 0, 1}, {0, 1, 6}, {0, -1, 8},  {-1, 0, 3},   {-1, -0.0, 1},  {0, 2.5, 6},
                     {1, 1, 1}, {0, 0, 1}, {NAN, 1, 1}, {0.01, 1, 1}, {-1, 0.0001, 1}};
  for (const auto& row : table) {
    const auto code = LUMGlobal::CGImageOrientationFromCGAffineTransform({row.a, row.b, 9, 9, 9, 9});
    EXPECT_EQ(static_cast<uint32_t>(code), row.code) << row.a << ' ' << row.b;
  }
}

}  // namespace
}  // namespace vidloom
