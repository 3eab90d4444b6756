#include "vidloom/platform/coremedia/CMTimeRange.h"

#include "tests/platform/coremedia/TimeTesting.h"

namespace vidloom {
namespace {

constexpr CMTime kNone = kCMTimeInvalid;
constexpr CMTime kPlusInf = kCMTimePositiveInfinity;

CMTime seconds(int64_t count) { return CMTimeMake(count, 1); }
CMTimeRange range(int64_t start, int64_t duration) { return CMTimeRangeMake(seconds(start), seconds(duration)); }

TEST(CMTimeRange, IsValidByStartAndDurationAndTheRawValueOfTheDuration) {
  using Row = std::tuple<CMTimeRange, bool, bool>;
  for (const auto& [range, valid, empty] :
       {Row{kCMTimeRangeZero, true, true}, Row{kCMTimeRangeInvalid, false, false}, Row{range(-3, 2), true, false},
        Row{range(3, -1), false, false}, Row{{seconds(0), kPlusInf}, true, false}, Row{{seconds(1), {0, 600, 1, 0}}, true, true},
        Row{{seconds(1), {1, 1, 1, 4}}, false, false}, Row{{kNone, seconds(1)}, false, false}, Row{{}, false, false}}) {
    EXPECT_EQ(CMTIMERANGE_IS_VALID(range), valid) << range;
    EXPECT_EQ(CMTIMERANGE_IS_EMPTY(range), empty) << range;
  }
  EXPECT_TRUE(CMTIMERANGE_IS_INVALID(CMTimeRangeMake(seconds(0), {1, 1, 1, 2})));
}

TEST(CMTimeRange, ContainsItsStartButNotItsEnd) {
  using Row = std::tuple<CMTimeRange, CMTime, bool>;
  const CMTimeRange three = range(2, 3);
  for (const auto& [range, time, contained] :
       {Row{three, {2399, 1200, 1, 0}, false}, Row{three, seconds(2), true}, Row{three, {2147483647, 500000000, 1, 0}, true},
        Row{three, seconds(5), false}, Row{three, kNone, false}, Row{range(2, 0), seconds(2), false},
        Row{kCMTimeRangeInvalid, kNone, false}, Row{{seconds(0), kPlusInf}, seconds(1'000'000), true}}) {
    EXPECT_EQ(CMTimeRangeContainsTime(range, time), contained) << range << time;
  }
  for (const auto& [inner, contained] : {std::pair{three, true}, std::pair{range(5, 0), true}, std::pair{range(4, 2), false}}) {
    EXPECT_EQ(CMTimeRangeContainsTimeRange(three, inner), contained) << inner;
  }
}

TEST(CMTimeRange, IsEqualByValueNotByTimescale) {
  EXPECT_TRUE(CMTimeRangeEqual({{0, 1, 1, 0}, {2, 1, 1, 0}}, {{0, 600, 1, 0}, {1200, 600, 1, 0}}));
  EXPECT_FALSE(CMTimeRangeEqual(range(0, 2), range(0, 3)));
  EXPECT_FALSE(CMTimeRangeEqual(range(0, 2), range(1, 2)));
  EXPECT_TRUE(CMTimeRangeEqual(CMTimeRangeFromTimeToTime(seconds(3), seconds(8)), range(3, 5)));
}

TEST(CMTimeRange, UnionHoldsTheGapAndIntersectionMayBeEmpty) {
  using Row = std::tuple<CMTimeRange, CMTimeRange, CMTimeRange, CMTimeRange>;
  for (const auto& [a, b, expectedUnion, expectedIntersection] :
       {Row{range(0, 2), range(1, 3), range(0, 4), range(1, 1)}, Row{range(0, 9), range(2, 3), range(0, 9), range(2, 3)},
        Row{{seconds(0), kPlusInf}, range(4, 3), {seconds(0), kPlusInf}, range(4, 3)}}) {
    EXPECT_TRUE(CMTimeRangeEqual(CMTimeRangeGetUnion(a, b), expectedUnion)) << a << b;
    EXPECT_TRUE(CMTimeRangeEqual(CMTimeRangeGetUnion(b, a), expectedUnion)) << a << b;
    EXPECT_TRUE(CMTimeRangeEqual(CMTimeRangeGetIntersection(a, b), expectedIntersection)) << a << b;
    EXPECT_TRUE(CMTimeRangeEqual(CMTimeRangeGetIntersection(b, a), expectedIntersection)) << a << b;
  }
  for (const auto& other : {range(2, 1), range(5, 1)}) {
    EXPECT_TRUE(CMTIMERANGE_IS_EMPTY(CMTimeRangeGetIntersection(range(0, 2), other))) << other;
  }
  EXPECT_TRUE(CMTimeRangeEqual(CMTimeRangeGetUnion(range(0, 1), range(5, 1)), range(0, 6)));
  EXPECT_TRUE(CMTIMERANGE_IS_INVALID(CMTimeRangeGetUnion(range(0, 1), kCMTimeRangeInvalid)));
}

TEST(CMTimeMap, ExtendsLinearlyBeyondTheRange) {
  using Row = std::tuple<CMTime, CMTimeRange, CMTimeRange, CMTime>;
  const CMTimeRange frames = {{0, 1, 1, 0}, {1001, 30000, 1, 0}};
  for (const auto& [time, from, to, expected] :
       {Row{seconds(1), range(0, 2), range(10, 4), seconds(12)}, Row{seconds(2), range(0, 2), range(10, 4), seconds(14)},
        Row{seconds(3), range(0, 2), range(10, 4), seconds(16)}, Row{seconds(-1), range(0, 2), range(10, 4), seconds(8)},
        Row{seconds(1), range(0, 0), range(10, 4), kNone}, Row{seconds(1), range(0, 2), range(10, 0), kNone},
        Row{seconds(5), {seconds(2), kPlusInf}, {seconds(7), kPlusInf}, seconds(10)},
        Row{{5, 1, 1, 3}, range(0, 2), range(10, 4), kNone}, Row{kNone, range(0, 2), range(10, 4), kNone},
        Row{{1, 3, 1, 0}, range(0, 3), range(0, 7), {7, 9, 1, 0}}, Row{{2002, 30000, 1, 0}, frames, range(1, 1), seconds(3)},
        Row{{1, 7, 1, 0},
            {{0, 1, 1, 0}, {999999937, 1000000007, 1, 0}},
            {{0, 1, 1, 0}, {999999937, 1000000007, 1, 0}},
            {1, 7, 1, 0}}}) {
    const CMTime result = CMTimeMapTimeFromRangeToRange(time, from, to);
    EXPECT_EQ(CMTimeCompare(result, expected), 0) << time << " from " << from << " to " << to << " is " << result;
  }
}

TEST(CMTimeMap, ScalesADurationOnly) {
  EXPECT_EQ(CMTimeCompare(CMTimeMapDurationFromRangeToRange(seconds(1), range(5, 2), range(10, 4)), seconds(2)), 0);
  EXPECT_TRUE(CMTIME_IS_INVALID(CMTimeMapDurationFromRangeToRange({1, 1, 1, 2}, range(5, 2), range(10, 4))));
  EXPECT_TRUE(CMTIME_IS_INVALID(CMTimeMapDurationFromRangeToRange(seconds(1), range(5, 0), range(10, 4))));
}

TEST(CMTimeMap, RoundsToTheFinestTimescaleWhatNoneCanHold) {
  const CMTimeRange from = {{0, 1, 1, 0}, {1000000007, 2147483629, 1, 0}};
  const CMTimeRange to = {{0, 1, 1, 0}, {999999937, 2147483587, 1, 0}};
  const CMTime mapped = CMTimeMapTimeFromRangeToRange({123456789, 48000, 1, 0}, from, to);
  EXPECT_TRUE(CMTIME_HAS_BEEN_ROUNDED(mapped));
  const long double expected = 123456789.0L / 48000 * 999999937 / 2147483587 * 2147483629 / 1000000007;
  EXPECT_NEAR(static_cast<double>(static_cast<long double>(mapped.value) / mapped.timescale - expected), 0, 1e-9);
}

}  // namespace
}  // namespace vidloom
