#include "hostkit/TimelineDrawer.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <numbers>

#include "hostkit/TextTrack.h"
#include "tests/hostkit/DrawingFixtures.h"
#include "vidloom/platform/coreimage/CIImage.h"
#include "vidloom/timeline/LUMCGImageTrack.h"
#include "vidloom/timeline/LUMCIImageTrack.h"
#include "vidloom/timeline/LUMCVPixelBufferTrack.h"
#include "vidloom/timeline/LUMComposition.h"
#include "vidloom/timeline/LUMCropData.h"
#include "vidloom/timeline/LUMInstruction.h"

namespace vidloom {
namespace {

using namespace vidloom::testing;

constexpr Rgb kBlack{0, 0, 0}, kWhite{255, 255, 255}, kRed{255, 0, 0}, kGreen{0, 255, 0}, kBlue{0, 0, 255};
constexpr uint32_t kWhitePixel = 0xffffffff, kRedPixel = 0xffff0000, kGreenPixel = 0xff00ff00, kBluePixel = 0xff0000ff;
constexpr int kSide = 64;

CMTimeRange seconds(int64_t start, int64_t duration) { return CMTimeRangeMake(CMTimeMake(start, 1), CMTimeMake(duration, 1)); }

CGAffineTransform turned(double degrees, double scale, double tx, double ty) {
  const double angle = degrees * std::numbers::pi / 180;
  return {scale * std::cos(angle), scale * std::sin(angle), -scale * std::sin(angle), scale * std::cos(angle), tx, ty};
}

MATCHER_P(IsNearly, color, "") { return Pixels::distance(arg, color) <= 3; }

std::shared_ptr<LUMTrack> still(uint64_t objectId, const CVPixelBufferRef& picture, const CMTimeRange& range = seconds(0, 10)) {
  return LUMCVPixelBufferTrack::initWithCVPixelBuffer(picture, objectId, range);
}

/// A still of that colour, 16 pixels square, at that place.
std::shared_ptr<LUMTrack> square(uint64_t objectId, uint32_t pixel, double x, double y, const CMTimeRange& range = seconds(0, 10)) {
  const auto track = still(objectId, makeBuffer(16, 16, pixel), range);
  track->setTransform(CGAffineTransformMake(1, 0, 0, 1, x, y));
  return track;
}

/// A white disc, its edge antialiased, around the middle of 40 x 40 pixels.
uint32_t discPixel(int x, int y, bool premultiplied) {
  const double inside = 16.5 - std::hypot(x + 0.5 - 20, y + 0.5 - 20);
  const auto alpha = static_cast<uint32_t>(std::lround(255 * std::clamp(inside, 0.0, 1.0)));
  const uint32_t color = premultiplied ? alpha : alpha > 0 ? 255 : 0;
  return alpha << 24 | color << 16 | color << 8 | color;
}

CGImageRef straightDisc() {
  const std::shared_ptr<uint32_t[]> pixels(new uint32_t[1600]);
  for (int i = 0; i < 1600; ++i) pixels[i] = discPixel(i % 40, i / 40, false);
  const std::shared_ptr<const uint8_t> bytes(pixels, reinterpret_cast<const uint8_t*>(pixels.get()));
  return CGImageCreate(40, 40, 160, bytes, kCGImageAlphaFirst, CGColorSpaceCreateWithName(kCGColorSpaceSRGB));
}

CVPixelBufferRef premultipliedDisc() {
  return makeBuffer(40, 40, [](int x, int y) { return discPixel(x, y, true); });
}

class TimelineDrawerTest : public ::testing::Test {
 protected:
  void add(const std::vector<std::shared_ptr<LUMTrack>>& tracks) {
    const auto instruction = LUMInstruction::initWithId(++instructions_);
    instruction->addTracks(tracks);
    timeline_->addInstructions({instruction});
  }
  CVPixelBufferRef draw(const CMTime& time = kCMTimeZero, std::map<CMPersistentTrackID, CVPixelBufferRef> sources = {}) {
    const auto request = std::make_shared<HandRequest>(context_, time, std::move(sources));
    drawer_->drawAsync(request, pipeline_);
    return request->wait();
  }
  CVPixelBufferRef drawNow(const CMTime& time = kCMTimeZero, std::map<CMPersistentTrackID, CVPixelBufferRef> sources = {}) {
    drawer_->takeTimeline(timeline_);
    return draw(time, std::move(sources));
  }
  void useFormat(OSType format) { context_ = std::make_shared<HandContext>(kSide, kSide, format); }

  uint64_t instructions_ = 0;
  std::shared_ptr<LUMComposition> timeline_ = LUMComposition::initWithSize(CGSizeMake(kSide, kSide), 30);
  std::shared_ptr<TimelineDrawer> drawer_ = TimelineDrawer::init();
  std::shared_ptr<HandPipeline> pipeline_ = std::make_shared<HandPipeline>();
  std::shared_ptr<HandContext> context_ =
      std::make_shared<HandContext>(kSide, kSide, kCVPixelFormatType_420YpCbCr8BiPlanarFullRange);
};

TEST_F(TimelineDrawerTest, LaysLaterTracksOverEarlierOnes) {
  add({square(1, kRedPixel, 0, 0), square(2, kGreenPixel, 8, 0)});
  add({square(3, kBluePixel, 16, 0)});
  const Pixels pixels(drawNow());
  EXPECT_THAT(pixels.at(4, 4), IsNearly(kRed));
  EXPECT_THAT(pixels.at(12, 4), IsNearly(kGreen));
  EXPECT_THAT(pixels.at(20, 4), IsNearly(kBlue));
  EXPECT_THAT(pixels.at(40, 4), IsNearly(kBlack));
}

TEST_F(TimelineDrawerTest, ShowsATrackFromItsStartUpToItsEnd) {
  const CMTimeRange range = CMTimeRangeMake(CMTimeMake(1, 3), CMTimeMake(2, 7));  // ends at 13/21
  add({square(1, kRedPixel, 0, 0, range)});
  const auto media = HandTrack::make(2, CGSizeMake(16, 16), range, CGAffineTransformMake(1, 0, 0, 1, 32, 0));
  add({media});
  const std::pair<CMTime, bool> rows[] = {{CMTimeMake(333'333'333, 1'000'000'000), false},
                                          {CMTimeMake(1, 3), true},
                                          {CMTimeMake(619'047'619, 1'000'000'000), true},
                                          {CMTimeMake(13, 21), false}};
  for (const auto& [time, isVisible] : rows) {
    const Pixels pixels(drawNow(time, {{2, makeBuffer(16, 16, kGreenPixel)}}));
    EXPECT_THAT(pixels.at(4, 4), IsNearly(isVisible ? kRed : kBlack)) << time;
    EXPECT_THAT(pixels.at(36, 4), IsNearly(isVisible ? kGreen : kBlack)) << time;
  }
}

TEST_F(TimelineDrawerTest, LeavesOutWhatIsIgnoredOrHasNoPictureNow) {
  const auto ignored = square(1, kRedPixel, 0, 0);
  ignored->setIgnoreRendering(true);
  add({ignored, HandTrack::make(2, CGSizeMake(16, 16), seconds(0, 10)), still(3, nullptr)});
  EXPECT_LE(Pixels(drawNow()).distanceFrom(kBlack), 1);
}

TEST_F(TimelineDrawerTest, HandsOnTheVeryFrameOfOneTrackThatFillsTheOutput) {
  add({HandTrack::make(1, CGSizeMake(kSide, kSide), seconds(0, 10))});
  const auto picture = CVPixelBufferCopyPicture(makeBuffer(kSide, kSide, kGreenPixel));
  const auto frame = CVPixelBufferCreateWithPicture(picture, kCVPixelFormatType_420YpCbCr8BiPlanarFullRange);
  EXPECT_EQ(drawNow(kCMTimeZero, {{1, frame}}), frame);
}

TEST_F(TimelineDrawerTest, ShowsEditsOnceTheTimelineIsTakenAgain) {
  const auto track = square(1, kRedPixel, 0, 0);
  add({track});
  drawer_->takeTimeline(timeline_);
  track->setTransform(CGAffineTransformMake(1, 0, 0, 1, 32, 0));
  track->setStart(CMTimeMake(5, 1));
  add({square(2, kGreenPixel, 0, 32)});
  const Pixels before(draw());
  EXPECT_THAT(before.at(4, 4), IsNearly(kRed));
  EXPECT_THAT(before.at(4, 36), IsNearly(kBlack));
  const Pixels after(drawNow(CMTimeMake(5, 1)));
  EXPECT_THAT(after.at(4, 4), IsNearly(kBlack));
  EXPECT_THAT(after.at(36, 4), IsNearly(kRed));
  EXPECT_THAT(after.at(4, 36), IsNearly(kGreen));
}

TEST_F(TimelineDrawerTest, CropsThenTransforms) {
  // Stored 32 x 16, red over blue at the left, green at the right; a quarter turn clockwise puts it upright.
  const auto frame = makeBuffer(32, 16, [](int x, int y) { return x >= 16 ? kGreenPixel : y < 8 ? kRedPixel : kBluePixel; });
  const CGAffineTransform upright{0, 1, -1, 0, 16, 0};
  struct Dot {
    int x, y;
    Rgb color;
  };
  struct Row {
    const char* what;
    bool isUpright;
    CGAffineTransform placed;  ///< after the picture was put upright
    std::shared_ptr<LUMCropData> crop;
    CGRect covered;
    std::vector<Dot> dots;
  };
  const auto pixels = [](const CGRect& area, int64_t angle = 0, CGSize box = {}, const CGAffineTransform& map = {}) {
    return LUMCropData::initWithTransform(map, area, CGRectZero, angle, box);
  };
  const auto fractions = [](const CGRect& part) { return LUMCropData::initWithTransform({}, CGRectMake(0, 0, 1, 1), part, 0, {}); };
  const CGAffineTransform moved{1, 0, 0, 1, 10, 20}, doubled{2, 0, 0, 2, 0, 0};
  const Row rows[] = {
      {"pixels", false, moved, pixels({{8, 4}, {16, 8}}), {{10, 20}, {16, 8}}, {{12, 21, kRed}, {12, 26, kBlue}, {22, 24, kGreen}}},
      {"odd pixels", false, moved, pixels({{17, 3}, {9, 7}}), {{10, 20}, {9, 7}}, {{11, 21, kGreen}, {17, 25, kGreen}}},
      {"fractions", false, moved, fractions({{0.5, 0}, {0.5, 0.5}}), {{10, 20}, {16, 8}}, {{12, 21, kGreen}, {24, 26, kGreen}}},
      {"a box",
       false,
       doubled,
       pixels({{50, 0}, {50, 100}}, 0, {100, 100}),
       {{0, 0}, {32, 32}},
       {{2, 2, kGreen}, {30, 30, kGreen}}},
      {"upright, above", true, moved, fractions({{0, 0}, {1, 0.5}}), {{10, 20}, {16, 16}}, {{12, 22, kBlue}, {24, 34, kRed}}},
      {"upright, right", true, moved, pixels({{8, 8}, {8, 24}}), {{10, 20}, {8, 24}}, {{12, 22, kRed}, {16, 40, kGreen}}},
      {"turned", false, moved, pixels({{0, 0}, {16, 16}}, 90), {{10, 20}, {16, 16}}, {{12, 22, kBlue}, {24, 34, kRed}}},
      {"mapped", false, moved, pixels({{16, 0}, {16, 16}}, 0, {}, doubled), {{10, 20}, {32, 32}}, {{12, 22, kGreen}}},
  };
  for (const auto& [what, isUpright, placed, crop, covered, dots] : rows) {
    SCOPED_TRACE(what);
    const CGAffineTransform preferred = isUpright ? upright : CGAffineTransformIdentity;
    const auto track = HandTrack::make(1, CGSizeMake(32, 16), seconds(0, 10), preferred);
    track->setTransform(CGAffineTransformConcat(preferred, placed));
    track->setCropData(crop);
    timeline_->setInstructions({});
    add({track});
    const Pixels drawn(drawNow(kCMTimeZero, {{1, frame}}));
    for (const Dot& dot : dots) EXPECT_THAT(drawn.at(dot.x, dot.y), IsNearly(dot.color)) << dot.x << ", " << dot.y;
    const CGRect around = CGRectMake(covered.origin.x - 1, covered.origin.y - 1, covered.size.width + 2, covered.size.height + 2);
    for (int i = 0; i < kSide * kSide; ++i) {
      if (CGRectContainsRect(around, CGRectMake(i % kSide, i / kSide, 1, 1))) continue;
      ASSERT_THAT(drawn.at(i % kSide, i / kSide), IsNearly(kBlack)) << i % kSide << ", " << i / kSide;
    }
  }
}

TEST_F(TimelineDrawerTest, LeavesNoFringesAroundAWhiteDiscOverWhite) {
  const auto ground = HandTrack::make(1, CGSizeMake(kSide, kSide), seconds(0, 10));
  struct Disc {
    std::shared_ptr<LUMTrack> track;
    int tolerance;
  };
  const Disc discs[] = {{LUMCGImageTrack::initWithCGImageRef(straightDisc(), 2, seconds(0, 10)), 1},
                        {still(2, premultipliedDisc()), 1},
                        // The samples of moving pictures are weighted in eight bits.
                        {HandTrack::make(2, CGSizeMake(40, 40), seconds(0, 10)), 4}};
  for (const OSType format : {kCVPixelFormatType_420YpCbCr8BiPlanarFullRange, kCVPixelFormatType_32BGRA}) {
    useFormat(format);
    for (const auto& map : {turned(0, 1, 10, 10), turned(0, 1, 10.5, 9.25), turned(0, 0.5, 21, 21), turned(30, 1.1, 25, 5)}) {
      for (const auto& [track, tolerance] : discs) {
        track->setTransform(map);
        timeline_->setInstructions({});
        add({ground, track});
        const auto frame = drawNow(kCMTimeZero, {{1, makeBuffer(kSide, kSide, kWhitePixel)}, {2, premultipliedDisc()}});
        EXPECT_EQ(CVPixelBufferGetPixelFormatType(frame), format);
        EXPECT_LE(Pixels(frame).distanceFrom(kWhite), tolerance) << map;
      }
    }
  }
}

TEST_F(TimelineDrawerTest, DrawsRecipesOverTheirExtent) {
  const auto recipe = CIImage::imageWithCVPixelBuffer(makeBuffer(16, 16, kRedPixel))
                          ->imageByApplyingTransform(CGAffineTransformMake(2, 0, 0, 1, 100, 100));
  const auto track = LUMCIImageTrack::initWithCIImage(recipe, 1, seconds(0, 10));
  track->setTransform(CGAffineTransformMake(1, 0, 0, 1, 8, 8));
  add({track});
  const Pixels pixels(drawNow());
  EXPECT_THAT(pixels.at(10, 10), IsNearly(kRed));
  EXPECT_THAT(pixels.at(38, 22), IsNearly(kRed));
  EXPECT_THAT(pixels.at(42, 10), IsNearly(kBlack));
  EXPECT_THAT(pixels.at(10, 26), IsNearly(kBlack));
}

TEST_F(TimelineDrawerTest, ScalesToTheSizeOfTheOutput) {
  context_ = std::make_shared<HandContext>(kSide / 2, kSide / 2, kCVPixelFormatType_32BGRA, 0.5F);
  add({square(1, kRedPixel, 32, 32), HandTrack::make(2, CGSizeMake(16, 16), seconds(0, 10))});
  const Pixels pixels(drawNow(kCMTimeZero, {{2, makeBuffer(16, 16, kBluePixel)}}));
  EXPECT_THAT(pixels.at(20, 20), IsNearly(kRed));
  EXPECT_THAT(pixels.at(26, 26), IsNearly(kBlack));
  EXPECT_THAT(pixels.at(4, 4), IsNearly(kBlue));
  EXPECT_THAT(pixels.at(10, 4), IsNearly(kBlack));
}

TEST_F(TimelineDrawerTest, ShowsTextsWhereTheyAreAndAtTheScaleOfTheirContents) {
  std::string problem;
  const auto text = TextTrack::initWithText("\u2588", {"Sans 20", 0x00ff00ff}, 1, seconds(0, 10), problem);
  ASSERT_NE(text, nullptr) << problem;
  for (const double scale : {0.0, 3.0}) {
    text->setContentsScale(scale);
    text->setTransform(text->transformAt(CGPointMake(20, 10)));
    timeline_->setInstructions({});
    add({text});
    const Pixels pixels(drawNow());
    EXPECT_THAT(pixels.at(24, 22), IsNearly(kGreen));
    EXPECT_THAT(pixels.at(14, 22), IsNearly(kBlack));
    EXPECT_THAT(pixels.at(24, 5), IsNearly(kBlack));
  }
}

}  // namespace
}  // namespace vidloom
