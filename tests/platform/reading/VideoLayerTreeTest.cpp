#include "vidloom/platform/reading/VideoLayerTree.h"

#include <gmock/gmock.h>

#include "tests/platform/reading/FrameServerFixture.h"

namespace vidloom {
namespace {

using ::testing::ElementsAre;

std::shared_ptr<CALayer> layerAt(const CGRect& frame, CVPixelBufferRef contents = nullptr) {
  const auto layer = CALayer::layer();
  layer->setFrame(frame);
  if (contents) layer->setContents(std::move(contents));
  return layer;
}

/// Frames of 64 x 36, whose first pixels carry their number; a tree in which one layer is the video.
class LayerTree : public FrameServerFixture {
 protected:
  LayerTree() {
    setup.pixelFormat = kCVPixelFormatType_420YpCbCr8BiPlanarFullRange;
    root->addSublayer(video);
  }
  void useTool() {
    composition->setAnimationTool(
        AVVideoCompositionCoreAnimationTool::videoCompositionCoreAnimationToolWithPostProcessingAsVideoLayer(video, root));
  }
  CMSampleBufferRef firstFrame() {
    if (setup.videoTracks.empty()) show({kCMTimeZero, seconds(10)}, {layer(addFilm())});
    useTool();
    return server()->next(nullptr);
  }
  const std::shared_ptr<CALayer> root = layerAt(CGRectMake(0, 0, 64, 36));
  const std::shared_ptr<CALayer> video = layerAt(CGRectMake(0, 0, 64, 36));
};

TEST_F(LayerTree, PicturesLieOverTheFrameFromTheBottomLeftAtAnyRenderScale) {
  root->addSublayer(layerAt(CGRectMake(8, 4, 16, 8), greyBuffer(4, 4, 235)));
  for (const int scale : {1, 2}) {
    composition->setRenderScale(static_cast<float>(scale));
    const auto sample = firstFrame();
    EXPECT_EQ(frameNumber(*pictureOf(sample)), scale == 1 ? 0 : -1);
    // 4 from the bottom is 24..32 from the top.
    for (const auto& [x, y] : {std::pair{9, 25}, {22, 30}}) EXPECT_EQ(lumaAt(sample, x * scale, y * scale), 235) << x << y;
    for (const auto& [x, y] : {std::pair{5, 28}, {26, 28}, {16, 21}, {16, 34}})
      EXPECT_NE(lumaAt(sample, x * scale, y * scale), 235) << x << y;
  }
}

TEST_F(LayerTree, TheGeometryMayBeFlippedAndPicturesStayUpright) {
  const auto twoTone = test::makePicture(2, 8, {}, false, [](int plane, int, int y) { return plane > 0 ? 128 : y < 4 ? 235 : 16; });
  for (const bool flipped : {false, true}) {
    root->setGeometryFlipped(flipped);
    const auto picture =
        layerAt(CGRectMake(10, flipped ? 4 : 24, 8, 8), CVPixelBufferCreateWithPicture(twoTone, kCVPixelFormatType_32BGRA));
    root->addSublayer(picture);
    const auto sample = firstFrame();
    EXPECT_EQ(lumaAt(sample, 14, 5), 235) << flipped;
    EXPECT_EQ(lumaAt(sample, 14, 10), 16) << flipped;
    picture->removeFromSuperlayer();
  }
}

TEST_F(LayerTree, AnchorsTransformsAndSublayersAddUp) {
  const auto group = CALayer::layer();
  group->setBounds(CGRectMake(100, 200, 20, 20));
  group->setAnchorPoint({0, 0});
  group->setPosition({40, 10});
  const auto picture = layerAt(CGRectMake(104, 204, 8, 4), greyBuffer(8, 4, 235));
  picture->setAffineTransform({0, 1, -1, 0, 0, 0});  // a quarter turn around the middle, (108, 206)
  EXPECT_EQ(picture->frame(), CGRectMake(106, 202, 4, 8));
  group->addSublayer(picture);
  root->addSublayer(group);
  const auto sample = firstFrame();
  // The frame lies at (46, 12) of the root, 4 x 8: rows 16..24 from the top.
  EXPECT_EQ(lumaAt(sample, 47, 17), 235);
  EXPECT_EQ(lumaAt(sample, 48, 22), 235);
  for (const auto& [x, y] : {std::pair{44, 20}, {52, 20}, {48, 14}, {48, 26}}) EXPECT_NE(lumaAt(sample, x, y), 235) << x << y;
}

TEST_F(LayerTree, OpacitiesMultiplyAndHiddenLayersHideWhatIsInThem) {
  const auto group = layerAt(CGRectMake(0, 0, 64, 36));
  group->setOpacity(0.5f);
  const auto below = layerAt(CGRectMake(20, 10, 10, 10), greyBuffer(2, 2, 235));
  below->setOpacity(0.5f);
  const auto hidden = layerAt(CGRectMake(40, 10, 10, 10), greyBuffer(2, 2, 235));
  hidden->setHidden(true);
  hidden->addSublayer(layerAt(CGRectMake(0, 0, 10, 10), greyBuffer(2, 2, 235)));
  group->addSublayer(below);
  group->addSublayer(hidden);
  root->addSublayer(group);
  video->setHidden(true);
  const auto sample = firstFrame();
  EXPECT_NEAR(lumaAt(sample, 25, 20), 16 + 219 / 4, 1);
  EXPECT_EQ(lumaAt(sample, 45, 20), 16);
  EXPECT_EQ(lumaAt(sample, 0, 0), 16) << "a hidden video layer shows no frame";
}

TEST_F(LayerTree, TheFrameMayBeAPictureAmongOthers) {
  video->setFrame(CGRectMake(32, 0, 32, 18));
  root->setContents(greyBuffer(2, 2, 235));
  root->addSublayer(layerAt(CGRectMake(48, 0, 16, 18), greyBuffer(2, 2, 126)));
  const auto sample = firstFrame();
  EXPECT_EQ(lumaAt(sample, 10, 10), 235);
  EXPECT_LT(lumaAt(sample, 40, 26), 100) << "the frame";
  EXPECT_EQ(lumaAt(sample, 56, 26), 126);
}

TEST_F(LayerTree, IsDrawnOnlyWhereTheInstructionSaysSo) {
  root->addSublayer(layerAt(CGRectMake(20, 0, 44, 36), greyBuffer(2, 2, 235)));
  const auto shown = layer(addFilm());
  for (const bool isPostProcessed : {true, false}) {
    const auto instruction = AVMutableVideoCompositionInstruction::videoCompositionInstruction();
    instruction->setTimeRange({isPostProcessed ? kCMTimeZero : seconds(1, 30), seconds(1, 30)});
    instruction->setLayerInstructions({shown});
    instruction->setEnablePostProcessing(isPostProcessed);
    addInstruction(instruction);
  }
  useTool();
  setup.range = {kCMTimeZero, seconds(3, 30)};
  const auto source = server();
  std::vector<bool> isDrawn;
  while (const auto sample = source->next(nullptr)) isDrawn.push_back(lumaAt(sample, 40, 20) == 235);
  EXPECT_THAT(isDrawn, ElementsAre(true, false, false));
}

TEST_F(LayerTree, LiesOverHostDrawnFramesToo) {
  root->addSublayer(layerAt(CGRectMake(20, 0, 44, 36), greyBuffer(2, 2, 235)));
  addFilm();
  addInstruction(std::make_shared<PlainInstruction>(CMTimeRange{kCMTimeZero, seconds(10)}));
  useCompositor(echo);
  const auto sample = firstFrame();
  EXPECT_EQ(frameNumber(*pictureOf(sample)), 0);
  EXPECT_EQ(lumaAt(sample, 40, 20), 235);
}

TEST(CALayer, NeverBecomesItsOwnAncestor) {
  const auto top = CALayer::layer(), middle = CALayer::layer(), bottom = CALayer::layer();
  top->addSublayer(middle);
  middle->addSublayer(bottom);
  bottom->addSublayer(top);
  bottom->addSublayer(bottom);
  EXPECT_TRUE(bottom->sublayers().empty());
  EXPECT_EQ(top->superlayer(), nullptr);
  top->addSublayer(bottom);
  EXPECT_TRUE(middle->sublayers().empty()) << "a layer lies in one place";
  EXPECT_EQ(bottom->superlayer(), top);
}

}  // namespace
}  // namespace vidloom
