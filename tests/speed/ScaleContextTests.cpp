#include <cmath>
#include <cstdlib>

#include "vidloom/speed/LUMScaleContext.h"
#include "vidloom/speed/LUMScalePoint.h"
#include "vidloom/speed/PWBezier.h"
#include "vidloom/timeline/LUMTrack.h"

namespace vidloom {
namespace {

const CGRect kBox = CGRectMake(0, 0, 300, 100);

CMTime seconds(double value) { return CMTimeMake(static_cast<int64_t>(std::llround(value * 600)), 600); }

std::shared_ptr<LUMTrack> trackOf(const CMTime& length) {
  auto track = LUMTrack::initWithId(1);
  track->updateAssetDuration(length);
  return track;
}

/// The height in the box at which the curve has that speed.
double heightOf(double speed) { return speed >= 1 ? 50 * (10 - speed) / 9 : 50 + 50 * (1 - speed) / 0.8; }

struct Knot {
  float x;
  double speed;
};

/// Straight curves between points of those speeds.
std::shared_ptr<LUMScaleContext> curve(const std::vector<Knot>& knots, const LUMScaleContext::Offsets& offsets = {}) {
  std::vector<std::shared_ptr<LUMScalePoint>> points;
  std::vector<std::shared_ptr<PWBezier>> beziers;
  for (const Knot& knot : knots) {
    const CGPoint center{300.0 * double{knot.x}, heightOf(knot.speed)};
    if (!points.empty()) beziers.push_back(PWBezier::initWithStartPoint(points.back()->center(), center));
    points.push_back(LUMScalePoint::initWithX(knot.x, 0, center));
  }
  return LUMScaleContext::initWithBox(kBox, points, beziers, offsets);
}

/// The bits come from exact fractions, rounded where the arithmetic rounds. The second half of the table lies where a product that
/// is rounded before its sum would tip the last decimal.
TEST(Speed, everyRoundingIsTheStatedOne) {
  struct {
    double top, bottom, y;
    float speed;
  } const table[] = {
      {0, 100, 0, 10.0f},
      {0, 100, 100, 0.2f},
      {0, 100, 0x1.25365b68caaa2p+4, 0x1.acccccp+2f},
      {12.5, 333.3, 0x1.0769f42ca288ep+6, 0x1.c0a3d8p+2f},
      {-7.7, 90.1, -0x1.d36030377bfaep+2, 0x1.3dc29p+3f},
      {0, 100, 0x1.04p+4, 0x1.c51eb8p+2f},
      {0, 100, 0x1.4c71c6p+2, 0x1.21eb86p+3f},
      {12.5, 333.3, 0x1.a2eb84p+6, 0x1.347ae2p+2f},
      {-7.7, 90.1, 0x1.2ef148p+6, 0x1.b851ecp-2f},
      {-7.7, 90.1, 0x1.2ede36p+5, 0x1.9eb852p+0f},
  };
  for (const auto& row : table) {
    const auto context = LUMScaleContext::initWithBox(CGRectMake(0, row.top, 1, row.bottom - row.top), {}, {}, {});
    EXPECT_EQ(context->getSpeedForCenter({77, row.y}), double{row.speed}) << row.y << " in " << row.top << ".." << row.bottom;
  }
}

TEST(Speed, isTheLabelReadBack) {
  const auto context = LUMScaleContext::initWithBox(kBox, {}, {}, {});
  const auto check = [&](double y) {
    const std::string label = context->speedLabelForCenter({0, y});
    const float read = std::strtof(label.c_str(), nullptr);
    const auto speed = static_cast<float>(context->getSpeedForCenter({0, y}));
    ASSERT_TRUE(speed == read || (std::isnan(speed) && std::isnan(read))) << label << " at " << y;
    ASSERT_EQ(std::signbit(speed), std::signbit(read)) << label << " at " << y;
  };
  for (int hundredths = -200; hundredths < 1200; ++hundredths) {  // around the heights where the last decimal changes
    auto y = static_cast<float>(heightOf((hundredths + 0.5) / 100));
    for (int i = 0; i < 4; ++i) y = std::nextafter(y, -1e9f);
    for (int i = 0; i < 9; ++i, y = std::nextafter(y, 1e9f)) check(double{y});
  }
  for (const double y : {-7.123, 99.999, 1e5, -1e9, 3e15, -3e15, 1e38, -1e38, double{INFINITY}, double{NAN}}) check(y);
  EXPECT_EQ(context->speedLabelForCenter({0, 75}), "0.60x");
}

TEST(ScaleContext, aConstantSpeedIsOneSegmentOverTheWholeContent) {
  struct {
    double speed, lengthSeconds, left, right, durationSeconds;
  } const table[] = {{2, 10, 0, 0, 5}, {0.25, 10, 0, 0, 40}, {1, 7, 1, 2, 4}, {-2, 10, 0, 0, -5}};
  for (const auto& row : table) {
    const auto context = LUMScaleContext::initWithLinearSpeed(row.speed);
    context->setOffsets({seconds(row.left), seconds(row.right)});
    context->setCachedDuration(seconds(99));
    const auto times = context->generateTimesForTrack(trackOf(seconds(row.lengthSeconds)));
    ASSERT_EQ(times.size(), 1u);
    EXPECT_EQ(CMTimeCompare(times[0].duration(), seconds(row.durationSeconds)), 0) << row.speed << times[0].duration();
    EXPECT_TRUE(CMTimeRangeEqual(times[0].timeRange(), {seconds(row.left), seconds(row.lengthSeconds)})) << row.speed;
    EXPECT_EQ(CMTimeCompare(times[0].start(), seconds(row.left)), 0);
    EXPECT_EQ(CMTimeCompare(context->cachedDuration(), seconds(99)), 0) << "left alone";
  }
}

TEST(ScaleContext, aCurveCoversItsContentInStepsWithoutGaps) {
  struct {
    std::string title;
    std::vector<Knot> knots;
    LUMScaleContext::Offsets offsets;
    CMTime length;
    size_t count;
    CMTime from, to;
    double totalSeconds;
  } const table[] = {
      {"1 to 4", {{0, 1}, {1, 4}}, {}, seconds(10), 100, seconds(0), seconds(10), 4.6587},
      {"remainder", {{0, 2}, {1, 2}}, {}, seconds(1.25), 13, seconds(0), seconds(1.25), 0.625},
      {"two pieces", {{0, 0.5}, {0.5f, 0.5}, {1, 0.5}}, {}, seconds(3), 30, seconds(0), seconds(3), 6},
      {"fine timescale", {{0, 1}, {1, 1}}, {}, CMTimeMake(88201, 44100), 21, seconds(0), CMTimeMake(88201, 44100), 88201 / 44100.0},
      {"part of the content", {{0.25f, 1}, {0.75f, 1}}, {}, seconds(4), 20, seconds(1), seconds(3), 2},
      {"trimmed to half", {{0, 2}, {1, 2}}, {seconds(1), seconds(0.5)}, seconds(10), 35, seconds(1), seconds(4.5), 1.75},
  };
  for (const auto& row : table) {
    SCOPED_TRACE(row.title);
    const auto original = curve(row.knots, row.offsets);
    const auto context = original->copy();
    EXPECT_NE(context->points()[0], original->points()[0]);
    const auto track = trackOf(row.length);
    if (row.title == "trimmed to half") {  // counted from the used content, not from the file
      track->setLeftTrimOffset(seconds(2));
      track->setRightTrimOffset(seconds(3));
    }
    const auto times = context->generateTimesForTrack(track);
    ASSERT_EQ(times.size(), row.count);
    CMTime content = row.from, output = row.offsets.leftOffset;
    for (const LUMScaleTime& time : times) {
      EXPECT_EQ(CMTimeCompare(time.timeRange().start, content), 0);
      EXPECT_EQ(CMTimeCompare(time.start(), output), 0);
      EXPECT_LE(CMTimeCompare(time.timeRange().duration, CMTimeMake(1, 10)), 0);
      content = CMTimeRangeGetEnd(time.timeRange());
      output = CMTimeAdd(output, time.duration());
    }
    EXPECT_EQ(CMTimeCompare(content, row.to), 0) << content;
    EXPECT_EQ(CMTimeCompare(context->cachedDuration(), output), 0);
    EXPECT_NEAR(CMTimeGetSeconds(CMTimeSubtract(output, row.offsets.leftOffset)), row.totalSeconds, 1e-3);
  }
}

TEST(ScaleContext, aShortPieceIsTwoHalvesAtTheSpeedsOfItsPoints) {
  const auto times = curve({{0.5f, 2}, {0.505f, 4}})->generateTimesForTrack(trackOf(seconds(10)));
  ASSERT_EQ(times.size(), 2u);
  const double half = CMTimeGetSeconds(times[0].timeRange().duration);
  EXPECT_NEAR(half, 0.025, 1e-4);
  EXPECT_EQ(CMTimeCompare(times[0].timeRange().duration, times[1].timeRange().duration), 0);
  EXPECT_NEAR(CMTimeGetSeconds(times[0].duration()), half / 2, 2e-5);
  EXPECT_NEAR(CMTimeGetSeconds(times[1].duration()), half / 4, 2e-5);
  EXPECT_EQ(curve({{0, 1}, {1, 1}})->generateTimesForTrack(trackOf(CMTimeMake(1, 10))).size(), 2u) << "exactly one step is short";
}

TEST(ScaleContext, degenerateInputEndsAtOnce) {
  const auto track = trackOf(seconds(10));
  const LUMScaleContext::Offsets leftOnly{seconds(1), kCMTimeIndefinite};  // what is no number counts as zero
  for (const auto& context : {curve({}, leftOnly), curve({{0, 1}}, leftOnly)}) {
    EXPECT_TRUE(context->generateTimesForTrack(track).empty());
    EXPECT_EQ(CMTimeCompare(context->cachedDuration(), seconds(1)), 0);
  }
  const auto whole = curve({{0, 1}, {1, 1}});
  const CMTime endless = CMTimeMake(int64_t{1} << 60, 1), farAway = CMTimeMake(int64_t{1} << 62, 1);
  EXPECT_TRUE(whole->generateTimesForTrack(nullptr).empty());
  EXPECT_TRUE(whole->generateTimesForTrack(trackOf(kCMTimePositiveInfinity)).empty());
  EXPECT_TRUE(whole->generateTimesForTrack(trackOf(endless)).empty());
  for (const float x : {NAN, INFINITY}) EXPECT_TRUE(curve({{0, 1}, {x, 1}})->generateTimesForTrack(track).empty());
  EXPECT_EQ(curve({{1, 1}, {0, 1}})->generateTimesForTrack(track).size(), 2u) << "points that go back";
  whole->setOffsets({farAway, kCMTimeZero});
  EXPECT_LE(whole->generateTimesForTrack(trackOf(CMTimeAdd(farAway, seconds(60)))).size(), 600u);
}

TEST(ScaleContext, theParameterIsTimeAndNotTheCurvesOwnPosition) {
  const auto bent = PWBezier::initWithOrigin({0, heightOf(1)}, {290, heightOf(1)}, {295, heightOf(4)}, {300, heightOf(4)});
  const auto context = LUMScaleContext::initWithBox(
      kBox, {LUMScalePoint::initWithX(0, 0, bent->C0()), LUMScalePoint::initWithX(1, 0, bent->C3())}, {bent}, {});
  const auto times = context->generateTimesForTrack(trackOf(seconds(1)));
  ASSERT_EQ(times.size(), 10u);
  const double speed = context->getSpeedForCenter(bent->outputAtT(0.5));
  EXPECT_NEAR(CMTimeGetSeconds(times[5].duration()), 0.1 / speed, 1e-5);
}

TEST(ScaleContextDeathTest, aMissingCurveStopsTheProgramWithItsNumber) {
  std::vector<std::shared_ptr<LUMScalePoint>> points;
  for (const float x : {0.0f, 0.5f, 1.0f}) points.push_back(LUMScalePoint::initWithX(x, 0, {0, 50}));
  const auto context = LUMScaleContext::initWithBox(kBox, points, {PWBezier::initWithStartPoint({0, 50}, {0, 50})}, {});
  EXPECT_DEATH(context->generateTimesForTrack(trackOf(seconds(10))), "generateTimesForTrack: curve 1 is missing");
}

}  // namespace
}  // namespace vidloom
