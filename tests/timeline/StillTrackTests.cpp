#include <gmock/gmock.h>

#include "tests/support/Fixtures.h"
#include "tests/timeline/TimelineFixtures.h"
#include "vidloom/platform/coreimage/CIImage.h"
#include "vidloom/speed/LUMScaleContext.h"
#include "vidloom/timeline/LUMAVTextAttributeTrack.h"
#include "vidloom/timeline/LUMCGImageTrack.h"
#include "vidloom/timeline/LUMCIImageTrack.h"
#include "vidloom/timeline/LUMCVPixelBufferTrack.h"
#include "vidloom/timeline/LUMCropData.h"

namespace vidloom {
namespace {

using test::range;
using test::seconds;
using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::IsEmpty;
using testing::LogCapture;

CGImageRef bitmap(CGImageAlphaInfo alphaInfo, const CGColorSpaceRef& space) {
  const std::shared_ptr<const uint8_t> bytes(new uint8_t[4 * 2 * 4](), std::default_delete<const uint8_t[]>());
  return CGImageCreate(4, 2, 16, bytes, alphaInfo, space);
}

CVPixelBufferRef buffer() {
  CVPixelBufferRef made;
  CVPixelBufferCreate(64, 48, kCVPixelFormatType_32BGRA, {}, &made);
  return made;
}

TEST(StillTracks, AreTrimmedLikeAnyOtherAndAnswerForTheKindOfPictureThatTheyHold) {
  const auto image = bitmap(kCGImageAlphaNone, nullptr);
  const auto recipe = CIImage::imageWithCGImage(image)->imageByApplyingTransform({2, 0, 0, 2, 10, 20});
  const auto pixels = buffer();
  const struct {
    std::shared_ptr<LUMTrack> track;
    CGImageRef image;
    CIImageRef recipe;
    CVPixelBufferRef pixels;
    CGSize size;
  } rows[] = {{LUMCGImageTrack::initWithCGImageRef(image, 7, range(2, 3)), image, nullptr, nullptr, {4, 2}},
              {LUMCIImageTrack::initWithCIImage(recipe, 7, range(2, 3)), nullptr, recipe, nullptr, {8, 4}},
              {LUMCIImageTrack::initWithCIImage(nullptr, 7, range(2, 3)), nullptr, nullptr, nullptr, {0, 0}},
              {LUMCVPixelBufferTrack::initWithCVPixelBuffer(pixels, 7, range(2, 3)), nullptr, nullptr, pixels, {64, 48}}};
  for (const auto& [track, ofImage, ofRecipe, ofPixels, size] : rows) {
    EXPECT_EQ(track->staticSourceCGImageRef(), ofImage);
    EXPECT_EQ(track->staticSourceCIImage(), ofRecipe);
    EXPECT_EQ(track->staticSourceCVPixelBuffer(), ofPixels);
    EXPECT_EQ(track->aspectSize(), size);
    EXPECT_EQ(track->transform(), CGAffineTransformIdentity);
    EXPECT_TRUE(CMTimeRangeEqual(track->trackGlobalTimeRange(), range(2, 3)));
    track->setRightTrimOffset(seconds(1));
    track->updateAssetDuration(seconds(5));
    EXPECT_EQ(CMTimeCompare(track->duration(), seconds(4)), 0);
    EXPECT_TRUE(track->isContentStatic() && !track->isOnlyAudioTrack());
  }
}

TEST(StillTracks, AreMadeWithoutAPictureTooAndSaySo) {
  LogCapture log;
  const auto ofImage = LUMCGImageTrack::initWithCGImageRef(nullptr, 1, range(2, 3));
  const auto ofBuffer = LUMCVPixelBufferTrack::initWithCVPixelBuffer(nullptr, 1, range(2, 3));
  EXPECT_THAT(log.lines(), ElementsAre(EndsWith("[LUMLog] LUMCGImageTrack - init CGImageRef is NULL"),
                                       EndsWith("[LUMLog] initWithCVPixelBuffer - init CVPixelBuffer is NULL")));
  EXPECT_FALSE(ofImage->isOpaque() || ofImage->isSRGB());
  EXPECT_EQ(ofImage->aspectSize(), CGSizeZero);
  EXPECT_EQ(ofBuffer->aspectSize(), CGSizeZero);
}

TEST(ImageTrack, IsOpaqueByWhatTheImageSaysOfItsAlpha) {
  for (const auto alphaInfo :
       {kCGImageAlphaNone, kCGImageAlphaNoneSkipLast, kCGImageAlphaNoneSkipFirst, kCGImageAlphaPremultipliedLast,
        kCGImageAlphaPremultipliedFirst, kCGImageAlphaLast, kCGImageAlphaFirst}) {
    const bool hasAlpha =
        alphaInfo != kCGImageAlphaNone && alphaInfo != kCGImageAlphaNoneSkipLast && alphaInfo != kCGImageAlphaNoneSkipFirst;
    const auto track = LUMCGImageTrack::initWithCGImageRef(bitmap(alphaInfo, nullptr), 1, range(0, 1));
    EXPECT_EQ(track->isOpaque(), !hasAlpha) << alphaInfo;
  }
}

TEST(ImageTrack, KnowsSRGBByItsNameAndSaysWhatElseItFinds) {
  const auto sRGB = CGColorSpaceCreateWithName(kCGColorSpaceSRGB);
  const std::string notRGB = "The image is not in RGB color space.";
  const struct {
    CGColorSpaceRef space;
    bool isSRGB;
    std::vector<std::string> lines;
  } rows[] = {{sRGB, true, {}},
              {CGColorSpaceCreateWithName(kCGColorSpaceDisplayP3), false, {}},
              {CGColorSpaceCreateDeviceRGB(), false, {"Color space is NULL"}},
              {nullptr, false, {"Color space is NULL"}},
              {CGColorSpaceCreateDeviceGray(), false, {notRGB}},
              {CGColorSpaceCreateIndexed(sRGB), false, {notRGB}}};
  for (const auto& row : rows) {
    LogCapture log;
    EXPECT_EQ(LUMCGImageTrack::initWithCGImageRef(bitmap(kCGImageAlphaNone, row.space), 1, range(0, 1))->isSRGB(), row.isSRGB);
    EXPECT_EQ(log.lines(), row.lines);
  }
}

TEST(RecipeTrack, IsOpaqueWhereItsPixelsAre) {
  const auto opaque = CIImage::imageWithCGImage(bitmap(kCGImageAlphaNone, nullptr));
  const auto seeThrough = CIImage::imageWithCGImage(bitmap(kCGImageAlphaFirst, nullptr));
  const struct {
    const char* what;
    CIImageRef image;
    bool isOpaque;
  } rows[] = {{"opaque", opaque, true},
              {"transparent", seeThrough, false},
              {"transparent over opaque", seeThrough->imageByCompositingOverImage(opaque), true},
              {"turned, with corners", opaque->imageByApplyingTransform({0.8, 0.6, -0.6, 0.8, 0, 0}), false},
              {"moved far away", opaque->imageByApplyingTransform({1, 0, 0, 1, -5000, 300}), true},
              {"without end", CIImage::imageWithColor(1, 0, 0, 1), false},
              {"empty", CIImage::emptyImage(), false}};
  for (const auto& row : rows)
    EXPECT_EQ(LUMCIImageTrack::initWithCIImage(row.image, 1, range(0, 1))->isOpaque(), row.isOpaque) << row.what;
}

TEST(StillTracks, OnlyThoseOfPixelBuffersCanBeCopied) {
  EXPECT_EQ(LUMCGImageTrack::initWithCGImageRef(bitmap(kCGImageAlphaNone, nullptr), 1, range(0, 1))->copyWithId(2), nullptr);
  EXPECT_EQ(LUMCIImageTrack::initWithCIImage(nullptr, 1, range(0, 1))->copyWithId(2), nullptr);
  EXPECT_EQ(LUMAVTextAttributeTrack::initWithId(1)->copyWithId(2), nullptr);
  const auto track = LUMCVPixelBufferTrack::initWithCVPixelBuffer(buffer(), 1, range(2, 6));
  track->setLeftTrimOffset(seconds(1));
  track->setRightTrimOffset(seconds(2));
  track->setStart(seconds(5));
  track->setTransform({2, 0, 0, 2, 5, 6});
  track->setIgnoreRendering(true);
  track->setScaleContext(LUMScaleContext::initWithLinearSpeed(2));
  track->setCropData(LUMCropData::initWithTransform({}, {}, {}, 45, {}));
  const auto copy = std::dynamic_pointer_cast<LUMCVPixelBufferTrack>(track->copyWithId(77));
  ASSERT_NE(copy, nullptr);
  EXPECT_EQ(copy->objectId(), 77u);
  EXPECT_EQ(copy->pixelBuffer(), track->pixelBuffer());
  EXPECT_TRUE(CMTimeRangeEqual(copy->trackInnerTimeRange(), range(1, 3)));
  EXPECT_TRUE(CMTimeRangeEqual(copy->trackGlobalTimeRange(), range(5, 3)));
  EXPECT_EQ(copy->transform(), track->transform());
  EXPECT_TRUE(copy->ignoreRendering());
  EXPECT_EQ(copy->scaleContext(), track->scaleContext());
  EXPECT_EQ(copy->cropData(), track->cropData());
}

}  // namespace
}  // namespace vidloom
