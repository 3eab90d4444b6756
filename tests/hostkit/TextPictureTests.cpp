#include "hostkit/TextPicture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <vector>

#include "hostkit/TextTrack.h"
#include "vidloom/platform/quartzcore/CALayer.h"
#include "vidloom/timeline/LUMCropData.h"

namespace vidloom {
namespace {

/// The smallest rectangle that holds every pixel with alpha.
CGRect inkOf(const CGImageRef& image) {
  int left = 1 << 20, top = 1 << 20, right = 0, bottom = 0;
  for (int y = 0; y < static_cast<int>(CGImageGetHeight(image)); ++y) {
    for (int x = 0; x < static_cast<int>(CGImageGetWidth(image)); ++x) {
      if (CGImageGetBytes(image)[CGImageGetBytesPerRow(image) * y + 4 * x + 3] < 128) continue;
      left = std::min(left, x);
      right = std::max(right, x + 1);
      top = std::min(top, y);
      bottom = std::max(bottom, y + 1);
    }
  }
  return CGRectMake(left, top, right - left, bottom - top);
}

std::optional<TextPicture> draw(const std::string& text, const TextStyle& style = {}, double scale = 1) {
  std::string problem;
  auto picture = pictureOfText(text, style, scale, problem);
  EXPECT_TRUE(picture) << problem;
  return picture;
}

CGSize inkSize(const std::string& font, const std::string& text = "HHHH") { return inkOf(draw(text, {font})->image).size; }

TEST(TextPictureTest, HasTheSizeThatTheFontSays) {
  const CGSize plain = inkSize("Sans 40");
  EXPECT_NEAR(plain.height, 0.7 * 40, 2);
  EXPECT_NEAR(inkSize("Sans 80").width, 2 * plain.width, 2);
  EXPECT_EQ(inkSize("sans-serif 40"), plain);
  EXPECT_EQ(inkSize("No Such Family 40"), plain);
  EXPECT_EQ(inkSize("Sans"), inkSize("Sans 48"));
  EXPECT_GT(inkSize("Sans Bold 40", "iiii").width, inkSize("Sans 40", "iiii").width);
  EXPECT_GT(inkSize("Sans 40", "H\nH").height, 2 * plain.height);
}

TEST(TextPictureTest, DrawsMorePixelsForTheSameText) {
  const auto once = draw("Ag", {"Sans 30"}), thrice = draw("Ag", {"Sans 30"}, 3);
  EXPECT_NEAR(inkOf(thrice->image).size.width, 3 * inkOf(once->image).size.width, 4);
  EXPECT_NEAR(thrice->frame.size.width, once->frame.size.width, 3);
}

TEST(TextPictureTest, IsPremultipliedInItsColor) {
  const auto picture = draw("\u2588", {"Sans 40", 0xff804080});
  const CGRect ink = inkOf(picture->image);
  const uint8_t* const pixel = CGImageGetBytes(picture->image) +
                               CGImageGetBytesPerRow(picture->image) * static_cast<size_t>(CGRectGetMidY(ink)) +
                               4 * static_cast<size_t>(CGRectGetMidX(ink));
  EXPECT_EQ(CGImageGetAlphaInfo(picture->image), kCGImageAlphaPremultipliedFirst);
  const int expected[] = {0x20, 0x40, 0x80, 0x80};
  for (int part = 0; part < 4; ++part) EXPECT_NEAR(pixel[part], expected[part], 1) << part;
}

TEST(TextPictureTest, RefusesWhatWouldBeTooLarge) {
  std::string problem;
  EXPECT_FALSE(pictureOfText(std::string(2000, 'M'), {"Sans 40"}, 1, problem));
  EXPECT_THAT(problem, testing::StartsWith("the text is too large: "));
  EXPECT_FALSE(pictureOfText("a", {"Sans 1000000"}, 1, problem));
  EXPECT_EQ(problem, "the font size of \"Sans 1000000\" is too large");
}

TEST(TextTrackTest, IsAStillThatCopiesWithAllItsSettings) {
  std::string problem;
  const CMTimeRange range = CMTimeRangeMake(CMTimeMake(2, 1), CMTimeMake(3, 1));
  const auto track = TextTrack::initWithText("Title", {"Sans Bold 30", 0xff0000ff}, 7, range, problem);
  ASSERT_NE(track, nullptr) << problem;
  EXPECT_TRUE(track->isContentStatic());
  track->setLeftTrimOffset(CMTimeMake(1, 2));
  track->setPosition(CGPointMake(4, 5));
  track->setCropData(LUMCropData::initWithTransform({}, {}, CGRectMake(0, 0, 1, 0.5), 0, {}));
  const auto copy = std::dynamic_pointer_cast<TextTrack>(track->copyWithId(8));
  ASSERT_NE(copy, nullptr);
  EXPECT_EQ(copy->objectId(), 8U);
  EXPECT_EQ(CMTimeCompare(copy->duration(), CMTimeMake(5, 2)), 0);
  EXPECT_EQ(copy->position(), CGPointMake(4, 5));
  EXPECT_EQ(copy->staticSourceCGImageRef(), track->staticSourceCGImageRef());
  EXPECT_EQ(copy->cropData()->percent(), track->cropData()->percent());
}

TEST(TextTrackTest, HasOneLayerWhileItIsShown) {
  std::string problem;
  const auto track = TextTrack::initWithText("Title", {}, 7, CMTimeRangeMake(CMTimeMake(2, 1), CMTimeMake(3, 1)), problem);
  ASSERT_NE(track, nullptr) << problem;
  const auto superlayer = CALayer::layer();
  track->setPosition(CGPointMake(40, 50));
  track->addInToSuperlayer(superlayer);
  const auto layer = track->layerForTime(CMTimeMake(2, 1));
  ASSERT_NE(layer, nullptr);
  EXPECT_EQ(superlayer->sublayers(), std::vector{layer});
  EXPECT_EQ(layer->frame().size, track->aspectSize());
  EXPECT_EQ(layer->frame().origin, CGPointMake(track->transformAt(CGPointMake(40, 50)).tx, track->transformAt({40, 50}).ty));
  track->setHidden(true);
  EXPECT_TRUE(layer->isHidden());
  track->removeFromSuperlayer();
  EXPECT_TRUE(superlayer->sublayers().empty());
  for (const int64_t seconds : {1, 5}) {
    EXPECT_EQ(track->renderLayerForTime(CMTimeMake(seconds, 1)), nullptr);
    EXPECT_FALSE(track->attrsForTime(CMTimeMake(seconds, 1)));
  }
  EXPECT_EQ(std::any_cast<std::string>(track->attrsForTime(CMTimeMake(4, 1))->at("string")), "Title");
}

}  // namespace
}  // namespace vidloom
