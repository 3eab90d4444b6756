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

TEST(StillTracks, LastAsLongAsTheirInitialRangeAndAreTrimmedLikeAnyOther) {
  const std::shared_ptr<LUMTrack> tracks[] = {
      LUMCGImageTrack::initWithCGImageRef(bitmap(kCGImageAlphaNone, CGColorSpaceCreateWithName(kCGColorSpaceSRGB)), 7, range(2, 3)),
      LUMCIImageTrack::initWithCIImage(CIImage::imageWithCVPixelBuffer(buffer()), 7, range(2, 3)),
      LUMCIImageTrack::initWithCIImage(nullptr, 7, range(2, 3)),
      LUMCVPixelBufferTrack::initWithCVPixelBuffer(buffer(), 7, range(2, 3)),
      LUMCVPixelBufferTrack::initWithCVPixelBuffer(nullptr, 7, range(2, 3)),
  };
  for (const auto& track : tracks) {
    EXPECT_EQ(track->objectId(), 7u);
    EXPECT_EQ(track->transform(), CGAffineTransformIdentity);
    EXPECT_TRUE(CMTimeRangeEqual(track->trackGlobalTimeRange(), range(2, 3)));
    EXPECT_EQ(CMTimeCompare(track->assetDuration(), seconds(3)), 0);
    EXPECT_EQ(CMTimeCompare(track->duration(), seconds(3)), 0);
    track->setRightTrimOffset(seconds(1));
    track->updateAssetDuration(seconds(5));
    EXPECT_EQ(CMTimeCompare(track->duration(), seconds(4)), 0);
    EXPECT_TRUE(track->isContentStatic());
    EXPECT_FALSE(track->isOnlyAudioTrack());
    EXPECT_EQ(track->dynamicAsset(), nullptr);
  }
}

TEST(StillTracks, AnswerForTheKindOfPictureThatTheyHold) {
  const auto image = bitmap(kCGImageAlphaNone, nullptr);
  const auto ofImage = LUMCGImageTrack::initWithCGImageRef(image, 1, range(0, 1));
  EXPECT_EQ(ofImage->staticSourceCGImageRef(), image);
  EXPECT_EQ(ofImage->staticSourceCVPixelBuffer(), nullptr);
  EXPECT_EQ(ofImage->staticSourceCIImage(), nullptr);
  EXPECT_EQ(ofImage->aspectSize(), (CGSize{4, 2}));
  const auto recipe = CIImage::imageWithCGImage(image)->imageByApplyingTransform({2, 0, 0, 2, 10, 20});
  const auto ofRecipe = LUMCIImageTrack::initWithCIImage(recipe, 1, range(0, 1));
  EXPECT_EQ(ofRecipe->staticSourceCIImage(), recipe);
  EXPECT_EQ(ofRecipe->staticSourceCGImageRef(), nullptr);
  EXPECT_EQ(ofRecipe->staticSourceCVPixelBuffer(), nullptr);
  EXPECT_EQ(ofRecipe->aspectSize(), (CGSize{8, 4}));
  const auto pixels = buffer();
  const auto ofBuffer = LUMCVPixelBufferTrack::initWithCVPixelBuffer(pixels, 1, range(0, 1));
  EXPECT_EQ(ofBuffer->staticSourceCVPixelBuffer(), pixels);
  EXPECT_EQ(ofBuffer->staticSourceCGImageRef(), nullptr);
  EXPECT_EQ(ofBuffer->staticSourceCIImage(), nullptr);
  EXPECT_EQ(ofBuffer->aspectSize(), (CGSize{64, 48}));
}

TEST(StillTracks, AreMadeWithoutAPictureTooAndSaySo) {
  LogCapture log;
  const auto ofImage = LUMCGImageTrack::initWithCGImageRef(nullptr, 1, range(2, 3));
  const auto ofBuffer = LUMCVPixelBufferTrack::initWithCVPixelBuffer(nullptr, 1, range(2, 3));
  const auto ofRecipe = LUMCIImageTrack::initWithCIImage(nullptr, 1, range(2, 3));
  EXPECT_THAT(log.lines(), ElementsAre(EndsWith("[LUMLog] LUMCGImageTrack - init CGImageRef is NULL"),
                                       EndsWith("[LUMLog] initWithCVPixelBuffer - init CVPixelBuffer is NULL")));
  EXPECT_FALSE(ofImage->isOpaque());
  EXPECT_FALSE(ofImage->isSRGB());
  EXPECT_FALSE(ofRecipe->isOpaque());
  EXPECT_EQ(ofRecipe->aspectSize(), CGSizeZero);
  EXPECT_EQ(ofImage->aspectSize(), CGSizeZero);
  EXPECT_EQ(ofBuffer->aspectSize(), CGSizeZero);
}

TEST(ImageTrack, IsOpaqueByWhatTheImageSaysOfItsAlpha) {
  const struct {
    CGImageAlphaInfo alphaInfo;
    bool isOpaque;
  } rows[] = {{kCGImageAlphaNone, true},
              {kCGImageAlphaPremultipliedLast, false},
              {kCGImageAlphaPremultipliedFirst, false},
              {kCGImageAlphaLast, false},
              {kCGImageAlphaFirst, false},
              {kCGImageAlphaNoneSkipLast, true},
              {kCGImageAlphaNoneSkipFirst, true}};
  for (const auto& row : rows) {
    const auto track = LUMCGImageTrack::initWithCGImageRef(bitmap(row.alphaInfo, nullptr), 1, range(0, 1));
    EXPECT_EQ(track->isOpaque(), row.isOpaque) << row.alphaInfo;
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
  track->userInfo()["name"] = 1;
  const auto copy = std::dynamic_pointer_cast<LUMCVPixelBufferTrack>(track->copyWithId(77));
  ASSERT_NE(copy, nullptr);
  track->userInfo().clear();
  EXPECT_EQ(copy->objectId(), 77u);
  EXPECT_EQ(copy->pixelBuffer(), track->pixelBuffer());
  EXPECT_TRUE(CMTimeRangeEqual(copy->trackInnerTimeRange(), range(1, 3)));
  EXPECT_TRUE(CMTimeRangeEqual(copy->trackGlobalTimeRange(), range(5, 3)));
  EXPECT_EQ(CMTimeCompare(copy->assetDuration(), seconds(6)), 0);
  EXPECT_EQ(copy->transform(), track->transform());
  EXPECT_TRUE(copy->ignoreRendering());
  EXPECT_EQ(copy->scaleContext(), track->scaleContext());
  EXPECT_EQ(copy->cropData(), track->cropData());
  EXPECT_EQ(copy->userInfo().count("name"), 1u);
}

TEST(TextTrack, DrawsNothingItself) {
  const auto track = LUMAVTextAttributeTrack::initWithId(9);
  track->setHidden(true);
  track->addInToSuperlayer(nullptr);
  track->removeFromSuperlayer();
  EXPECT_EQ(track->sizeToFit(), CGSizeZero);
  EXPECT_EQ(track->attrsForTime(kCMTimeZero), std::nullopt);
  EXPECT_EQ(track->layerForTime(kCMTimeZero), nullptr);
  EXPECT_EQ(track->renderLayerForTime(kCMTimeZero), nullptr);
  EXPECT_FALSE(track->isContentStatic());
}

}  // namespace
}  // namespace vidloom
