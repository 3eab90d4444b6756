#include <gtest/gtest.h>

#include "tests/compositing/Timelines.h"
#include "vidloom/platform/avfoundation/AVMediaFormat.h"

namespace vidloom {
namespace {

using NativeInstruction = AVMutableVideoCompositionInstruction;

std::shared_ptr<NativeInstruction> nativeInstruction(const LUMAVCompositionData& data) {
  return std::dynamic_pointer_cast<NativeInstruction>(data.videoComposition()->instructions().at(0));
}

struct OtherCompositor : LUMAVComposition {
  static std::shared_ptr<OtherCompositor> init() { return std::make_shared<OtherCompositor>(); }
};

TEST(Builders, SetSizeRateAndRangeAndColoursWhereNoHostDraws) {
  const auto composition = timelineOf({{trackAt(1, 0, 3)}, {trackAt(2, 1, 9)}}, 25);
  composition->getCompositionInstructions().at(0)->setStart(CMTimeMake(100, 1));  // takes no part
  composition->setColorPrimaries(AVVideoColorPrimaries_SMPTE_C);
  composition->setEnablePostProcessing(true);
  const struct {
    std::shared_ptr<LUMAVCompositionData> data;
    bool hasRange, hasLayers;
    std::string compositor;
  } rows[] = {{LUMAVComposition::buildNativeCompositionData(composition), true, true, ""},
              {LUMAVComposition::buildNativeCompositionWithCIFilterBlock(composition, [](const auto&) {}), false, false, ""},
              {LUMAVComposition::buildCompositionData(composition), true, false, "LUMAVComposition"},
              {LUMAVComposition::buildCompositionData<OtherCompositor>(composition), true, false, "OtherCompositor"}};
  for (const auto& row : rows) {
    const auto& video = *row.data->videoComposition();
    EXPECT_EQ(video.renderSize(), (CGSize{320, 180}));
    EXPECT_EQ(row.data->composition()->naturalSize(), (CGSize{320, 180}));
    EXPECT_EQ(CMTimeCompare(video.frameDuration(), CMTimeMake(1, 25)), 0);
    if (row.hasRange) {
      EXPECT_TRUE(CMTimeRangeEqual(video.instructions().at(0)->timeRange(), {kCMTimeZero, CMTimeMake(10, 1)}));
    }
    EXPECT_EQ(nativeInstruction(*row.data) != nullptr, row.hasLayers);
    const auto compositor = video.customVideoCompositorClass();
    EXPECT_EQ(compositor ? compositor.name : "", row.compositor);
    EXPECT_EQ(video.colorPrimaries().has_value(), row.compositor.empty());
    EXPECT_EQ(video.colorTransferFunction(), std::nullopt);
  }
}

TEST(Builders, ShowALayerExactlyWhileOneOfItsTracksRuns) {
  const auto first = trackAt(1, 1, 2), second = trackAt(2, 5, 2), above = trackAt(3, 0, 10);
  first->setTransform(CGAffineTransformMake(1, 0, 0, 1, 20, 30));
  second->setTransform(CGAffineTransformMake(1, 0, 0, 1, 40, 0));
  const auto data = LUMAVComposition::buildNativeCompositionData(timelineOf({{first, second, above}}));
  const auto& layers = nativeInstruction(*data)->layerInstructions();
  ASSERT_EQ(layers.size(), 2u);
  EXPECT_EQ(layers[0]->trackID(), data->composition()->tracks()[0]->trackID());
  const struct {
    int milliseconds;
    float opacity;
    double tx;
  } rows[] = {{0, 1, 0},     {1000, 1, 20}, {2999, 1, 20}, {3000, 0, 20}, {4999, 0, 20},
              {5000, 1, 40}, {6999, 1, 40}, {7000, 0, 40}, {60000, 0, 40}};
  for (const auto& row : rows) {
    const CMTime time = CMTimeMake(row.milliseconds, 1000);
    EXPECT_EQ(layers[0]->opacityAt(time), row.opacity) << row.milliseconds;
    EXPECT_EQ(layers[0]->transformAt(time).tx, row.tx) << row.milliseconds;
  }
  EXPECT_EQ(layers[1]->opacityAt(CMTimeMake(10, 1)), 0.0f);
}

TEST(Builders, AlwaysGiveData) {
  for (const auto& composition : {timelineOf({}), timelineOf({{}}), std::shared_ptr<LUMComposition>()}) {
    for (const auto& data :
         {LUMAVComposition::buildNativeCompositionData(composition), LUMAVComposition::buildCompositionData(composition)}) {
      EXPECT_TRUE(data->composition()->tracks().empty());
      ASSERT_EQ(data->videoComposition()->instructions().size(), 1u);
      EXPECT_TRUE(CMTIMERANGE_IS_EMPTY(data->videoComposition()->instructions()[0]->timeRange()));
    }
  }
}

TEST(Builders, NeverShortenAPipelinesDuration) {
  const auto composition = timelineOf({{trackAt(1, 0, 5)}});
  const auto pipeline = LUMAVCompositionInstruction::initWithComposition(composition);
  composition->removeInstruction(1000);
  pipeline->updateDuration();
  EXPECT_EQ(CMTimeGetSeconds(pipeline->duration()), 5.0);
  pipeline->setDuration(kCMTimeZero);
  pipeline->updateDuration();
  EXPECT_EQ(CMTimeGetSeconds(pipeline->timeRange().duration), 0.0);
}

}  // namespace
}  // namespace vidloom
