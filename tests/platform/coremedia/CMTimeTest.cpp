#include "vidloom/platform/coremedia/CMTime.h"

#include <cmath>

#include "tests/platform/coremedia/TimeTesting.h"

namespace vidloom {
namespace {

constexpr int64_t kMax = std::numeric_limits<int64_t>::max();
constexpr int64_t kMin = std::numeric_limits<int64_t>::min();
constexpr CMTime kPlusInf = kCMTimePositiveInfinity;
constexpr CMTime kMinusInf = kCMTimeNegativeInfinity;
constexpr CMTime kNone = kCMTimeInvalid;
constexpr CMTime kIndef = kCMTimeIndefinite;

TEST(CMTimeMakeWithSeconds, FollowsTheTable) {
  using Row = std::tuple<double, CMTimeScale, CMTime>;
  for (const auto& [seconds, timescale, expected] :
       {Row{0.5, 600, {300, 600, 1, 0}}, Row{-2.25, 4, {-9, 4, 1, 0}}, Row{1.0 / 3, 10, {3, 10, 3, 0}}, Row{1.5, 0, kNone},
        Row{std::nan(""), 600, kNone}, Row{INFINITY, 600, kPlusInf}, Row{-INFINITY, 600, kMinusInf}, Row{1e30, 600, kPlusInf},
        Row{-1e30, 1, kMinusInf}, Row{0x1p60, 600, {int64_t{4} << 60, 4, 1, 0}}}) {
    EXPECT_THAT(CMTimeMakeWithSeconds(seconds, timescale), Is(expected)) << seconds << " at " << timescale;
  }
}

TEST(CMTimeGetSeconds, IsADoubleForNumbersAndSaysWhatTheOthersAre) {
  EXPECT_EQ(CMTimeGetSeconds({1, 3, 1, 0}), 0.33333333333333331);
  EXPECT_EQ(CMTimeGetSeconds({7, 2, 1, 9}), 3.5);
  EXPECT_TRUE(std::isnan(CMTimeGetSeconds(kNone)));
  EXPECT_TRUE(std::isnan(CMTimeGetSeconds(kIndef)));
  EXPECT_EQ(CMTimeGetSeconds(kPlusInf), INFINITY);
  EXPECT_EQ(CMTimeGetSeconds(kMinusInf), -INFINITY);
}

TEST(CMTimeAddAndSubtract, FollowTheTable) {
  using Row = std::tuple<CMTime, CMTime, char, CMTime>;
  for (const auto& [a, b, operation, expected] : {Row{{1, 3, 1, 0}, {1, 4, 1, 0}, '+', {7, 12, 1, 0}},
                                                  Row{{1, 30, 1, 0}, {1, 25, 1, 0}, '+', {11, 150, 1, 0}},
                                                  Row{{1, 30, 1, 0}, {1, 25, 1, 0}, '-', {-1, 150, 1, 0}},
                                                  Row{{1, 44100, 1, 0}, {1, 600, 1, 0}, '+', {149, 88200, 1, 0}},
                                                  Row{{0, 1, 1, 0}, {1, 600, 1, 0}, '+', {1, 600, 1, 0}},
                                                  Row{{3, 10, 1, 0}, {3, 10, 1, 0}, '-', {0, 10, 1, 0}},
                                                  Row{{1001, 30000, 1, 0}, {1, 600, 1, 0}, '+', {1051, 30000, 1, 0}},
                                                  Row{{1, 1000000007, 1, 0}, {1, 1000000009, 1, 0}, '+', {4, 2147483647, 3, 0}},
                                                  Row{{1, 44100, 1, 0}, {1, 1000000000, 1, 0}, '+', {48698, 2147483647, 3, 0}},
                                                  Row{{kMax, 600, 1, 0}, {600, 600, 1, 0}, '+', {4611686018427388204, 300, 3, 0}},
                                                  Row{{kMin, 600, 1, 0}, {600, 600, 1, 0}, '-', {-4611686018427388204, 300, 1, 0}},
                                                  Row{{kMax, 1, 1, 0}, {1, 1, 1, 0}, '+', kPlusInf},
                                                  Row{{kMin, 1, 1, 0}, {-1, 1, 1, 0}, '+', kMinusInf},
                                                  Row{{kMin, 1, 1, 0}, {1, 1, 1, 0}, '-', kMinusInf},
                                                  Row{{0, 1, 1, 0}, {kMin, 1, 1, 0}, '-', kPlusInf},
                                                  Row{{1, 2, 3, 0}, {1, 2, 1, 0}, '+', {2, 2, 3, 0}},
                                                  Row{{1, 1, 1, 1}, {1, 1, 1, 2}, '+', kNone},
                                                  Row{{1, 1, 1, 3}, {1, 1, 1, 3}, '-', {0, 1, 1, 0}},
                                                  Row{{1, 1, 1, 3}, {1, 1, 1, 0}, '+', {2, 1, 1, 3}},
                                                  Row{{1, 0, 1, 0}, {1, 1, 1, 0}, '+', kNone}}) {
    const CMTime result = operation == '+' ? CMTimeAdd(a, b) : CMTimeSubtract(a, b);
    EXPECT_THAT(result, Is(expected)) << a << ' ' << operation << ' ' << b;
  }
}

TEST(CMTimeAddAndSubtract, HandleTheSpecialValuesBeforeAnything) {
  const CMTime finite = CMTimeMake(5, 2);
  using Row = std::tuple<CMTime, CMTime, CMTime, CMTime>;
  for (const auto& [a, b, sum, difference] :
       {Row{kPlusInf, kPlusInf, kPlusInf, kNone}, Row{kMinusInf, kMinusInf, kMinusInf, kNone},
        Row{kPlusInf, kMinusInf, kNone, kPlusInf}, Row{kMinusInf, kPlusInf, kNone, kMinusInf},
        Row{kPlusInf, finite, kPlusInf, kPlusInf}, Row{kPlusInf, kIndef, kPlusInf, kPlusInf},
        Row{finite, kPlusInf, kPlusInf, kMinusInf}, Row{kIndef, kPlusInf, kPlusInf, kMinusInf},
        Row{finite, kMinusInf, kMinusInf, kPlusInf}, Row{kMinusInf, finite, kMinusInf, kMinusInf},
        Row{kMinusInf, kIndef, kMinusInf, kMinusInf}, Row{finite, kIndef, kIndef, kIndef}, Row{kIndef, finite, kIndef, kIndef},
        Row{kNone, finite, kNone, kNone}, Row{kPlusInf, kNone, kNone, kNone}, Row{kIndef, kNone, kNone, kNone}}) {
    EXPECT_THAT(CMTimeAdd(a, b), Is(sum)) << a << " + " << b;
    EXPECT_THAT(CMTimeSubtract(a, b), Is(difference)) << a << " - " << b;
  }
}

TEST(CMTimeCompare, IsATotalOrder) {
  // Ascending; what stands in one line is equal.
  const std::vector<std::vector<CMTime>> order = {{kMinusInf, {99, 7, 9, 4}},
                                                  {{kMin, 1, 1, 0}},
                                                  {{-1, 3, 1, 0}, {-2, 6, 3, 0}},
                                                  {{0, 1, 1, 0}, {0, 600, 1, 0}},
                                                  {{333333333, 1000000000, 1, 0}},
                                                  {{1, 3, 1, 0}, {2, 6, 1, 0}},
                                                  {{kMax - 1, 3, 1, 0}},
                                                  {{kMax, 3, 1, 0}},
                                                  {{kMax - 1, 1, 1, 0}},
                                                  {{1, 1, 1, 1}},
                                                  {kIndef},
                                                  {kPlusInf, {-5, 3, 5, 8}},
                                                  {kNone, {5, 7, 0, 3}, {1, 0, 1, 0}}};
  for (size_t i = 0; i < order.size(); ++i) {
    for (size_t j = 0; j < order.size(); ++j) {
      for (const CMTime& a : order[i]) {
        for (const CMTime& b : order[j]) EXPECT_EQ(CMTimeCompare(a, b), (i > j) - (i < j)) << a << " and " << b;
      }
    }
  }
}

TEST(CMTimeMultiplyByRatio, StaysExactAndReducesTheRatioFirst) {
  using Row = std::tuple<CMTime, int32_t, int32_t, CMTime>;
  for (const auto& [time, multiplier, divisor, expected] :
       {Row{{43804, 600, 1, 0}, 1, 4, {43804, 2400, 1, 0}}, Row{{1000, 1, 1, 0}, 20, 10, {2000, 1, 1, 0}},
        Row{{1, 3, 1, 0}, -2, 5, {-2, 15, 1, 0}}, Row{{1, 3, 1, 0}, 2, -5, {-2, 15, 1, 0}}, Row{{1, 3, 1, 0}, -4, -2, {2, 3, 1, 0}},
        Row{{10, 1000000000, 1, 0}, 1, 10, {1, 1000000000, 1, 0}}, Row{{1, 1000000000, 1, 0}, 1, 3, {1, 2147483647, 3, 0}},
        Row{{0, 600, 1, 0}, 1, 0, kNone}, Row{{5, 600, 1, 0}, 0, 0, kNone}, Row{{5, 600, 1, 0}, 1, 0, kPlusInf},
        Row{{5, 600, 1, 0}, -1, 0, kMinusInf}, Row{kPlusInf, 1, 2, kPlusInf}, Row{kIndef, 1, 2, kIndef}, Row{kNone, 1, 2, kNone},
        Row{{7, 30, 1, 0}, -3, 1, {-21, 30, 1, 0}}, Row{{7, 30, 3, 5}, 0, 1, {0, 30, 3, 5}}, Row{{kMax, 1, 1, 0}, 2, 1, kPlusInf},
        Row{{kMax, 600, 1, 0}, 4, 1, {kMax, 150, 1, 0}}, Row{{kMax, 1, 1, 0}, -2, 1, kMinusInf}}) {
    EXPECT_THAT(CMTimeMultiplyByRatio(time, multiplier, divisor), Is(expected)) << time << " x " << multiplier << " / " << divisor;
    if (divisor != 1) continue;
    EXPECT_THAT(CMTimeMultiply(time, multiplier), Is(expected)) << time << " x " << multiplier;
  }
  EXPECT_THAT(CMTimeMultiply(kPlusInf, -1), Is(kMinusInf));
  EXPECT_THAT(CMTimeMultiply(kMinusInf, -1), Is(kPlusInf));
  EXPECT_THAT(CMTimeMultiply(kPlusInf, 0), Is(kNone));
  for (const CMTime& time : {kIndef, kNone}) EXPECT_THAT(CMTimeMultiply(time, 4), Is(time));
}

TEST(CMTimeConvertScale, RoundsByTheMethod) {
  struct Row {
    CMTime time;
    CMTimeScale timescale;
    int64_t values[6];  // methods 1 to 6
    bool rounded;
  };
  for (const Row& row :
       {Row{{5, 2, 1, 0}, 1, {3, 2, 3, 2, 3, 2}, true}, Row{{-5, 2, 1, 0}, 1, {-3, -2, -3, -2, -2, -3}, true},
        Row{{1, 3, 1, 0}, 1, {0, 0, 1, 0, 1, 0}, true}, Row{{-1, 3, 1, 0}, 1, {0, 0, -1, -1, 0, -1}, true},
        Row{{-2, 3, 1, 0}, 1, {-1, 0, -1, -1, 0, -1}, true}, Row{{1, 4, 1, 0}, 2, {1, 0, 1, 0, 1, 0}, true},
        Row{{1, 3, 1, 0}, 10, {3, 3, 4, 4, 4, 3}, true}, Row{{-1, 3, 1, 0}, 10, {-3, -3, -4, -4, -3, -4}, true},
        Row{{1001, 30000, 1, 0}, 600, {20, 20, 21, 20, 21, 20}, true},
        Row{{1024, 44100, 1, 0}, 600, {14, 13, 14, 13, 14, 13}, true}, Row{{7, 10, 1, 0}, 10, {7, 7, 7, 7, 7, 7}, false},
        Row{{7, 10, 1, 4}, 20, {14, 14, 14, 14, 14, 14}, false}}) {
    for (uint32_t method = 1; method <= 6; ++method) {
      const CMTime expected{row.values[method - 1], row.timescale, row.rounded ? 3u : 1u, row.time.epoch};
      EXPECT_THAT(CMTimeConvertScale(row.time, row.timescale, static_cast<CMTimeRoundingMethod>(method)), Is(expected))
          << row.time << " to " << row.timescale << " by method " << method;
    }
  }
}

TEST(CMTimeConvertScale, PassesOnWhatIsNoNumber) {
  for (const CMTime& time : {kPlusInf, kIndef, kNone}) EXPECT_THAT(CMTimeConvertScale(time, 600), Is(time));
  EXPECT_THAT(CMTimeConvertScale(CMTimeMake(1, 3), 0), Is(kNone));
  EXPECT_THAT(CMTimeConvertScale(CMTimeMake(kMax, 1), 2), Is(CMTimeMake(kMax, 1)));
}

TEST(CMTimeMultiplyByFloat64, KeepsTheTimescaleWhereTheProductIsWholeElseGoesFine) {
  using Row = std::tuple<CMTime, double, CMTime>;
  const double almostHalf = 0.505f;
  for (const auto& [time, multiplier, expected] : {Row{{10, 1, 1, 0}, 0.5, {5, 1, 1, 0}},
                                                   Row{{10, 1, 1, 0}, almostHalf, {330957, 65536, 1, 0}},
                                                   Row{{6000, 600, 1, 0}, almostHalf, {387840, 76800, 1, 0}},
                                                   Row{{1, 30, 1, 0}, 0.5, {2048, 122880, 1, 0}},
                                                   Row{{60, 600, 1, 0}, 1.0 / 0.6f, {12800, 76800, 1, 0}},
                                                   Row{{1, 10, 1, 0}, 1 / 3.0, {2731, 81920, 1, 0}},
                                                   Row{{10, 1, 1, 0}, 1 / 3.0, {218453, 65536, 1, 0}},
                                                   Row{{-10, 1, 1, 0}, 1 / 3.0, {-218453, 65536, 1, 0}},
                                                   Row{{6000, 600, 1, 0}, 1 / 3.0, {2000, 600, 1, 0}},
                                                   Row{{300, 30, 1, 0}, 1.0 / 0.75f, {400, 30, 1, 0}},
                                                   Row{{1, 48000, 1, 0}, 0.5, {1, 96000, 1, 0}},
                                                   Row{{3, 96000, 1, 7}, 0.5, {2, 96000, 1, 7}},
                                                   Row{{1, 1, 1, 0}, 0, {0, 1, 1, 0}},
                                                   Row{{1, 1, 1, 0}, 1e30, kPlusInf},
                                                   Row{{1, 1, 1, 0}, -1e30, kMinusInf},
                                                   Row{{1, 1, 1, 0}, INFINITY, kNone},
                                                   Row{{1, 1, 1, 0}, std::nan(""), kNone},
                                                   Row{kNone, 2, kNone},
                                                   Row{kIndef, 2, kIndef},
                                                   Row{kPlusInf, -2, kMinusInf},
                                                   Row{kMinusInf, -2, kPlusInf},
                                                   Row{kPlusInf, 0, kNone},
                                                   Row{kPlusInf, INFINITY, kNone}}) {
    // Whether a product counts as rounded depends on the arithmetic, so that flag is left out.
    CMTime result = CMTimeMultiplyByFloat64(time, multiplier);
    if (CMTIME_IS_NUMERIC(result)) result.flags = kCMTimeFlags_Valid;
    EXPECT_THAT(result, Is(expected)) << time << " x " << multiplier;
  }
  const CMTime long1 = CMTimeMultiplyByFloat64({kMax, 600, 1, 0}, 2.0);
  EXPECT_TRUE(CMTIME_IS_NUMERIC(long1));
  EXPECT_DOUBLE_EQ(CMTimeGetSeconds(long1), 3.0744573456182586e16);
}

TEST(CMTimeAbsoluteValue, DropsTheSign) {
  EXPECT_THAT(CMTimeAbsoluteValue({-7, 30, 3, 2}), Is({7, 30, 3, 2}));
  EXPECT_THAT(CMTimeAbsoluteValue({kMin, 600, 1, 0}), Is({int64_t{1} << 62, 300, 1, 0}));
  EXPECT_THAT(CMTimeAbsoluteValue(kMinusInf), Is(kPlusInf));
  EXPECT_THAT(CMTimeAbsoluteValue(kIndef), Is(kIndef));
}

}  // namespace
}  // namespace vidloom
