#include <gtest/gtest.h>

#include "tests/compositing/Timelines.h"
#include "vidloom/platform/avfoundation/AVMediaFormat.h"

namespace vidloom {
namespace {

using NativeInstruction = AVMutableVideoCompositionInstruction;

std::shared_ptr<NativeInstruction> nativeInstruction(const LUMAVCompositionData& data) {
  return std::dynamic_pointer_cast<NativeInstruction>(data.videoComposition()->instructions().at(0));
}

class OtherCompositor : public LUMAVComposition {
 public:
  static std::shared_ptr<OtherCompositor> init() {
    struct Concrete : OtherCompositor {};
    return std::make_shared<Concrete>();
  }
};

TEST(Builders, SetSizeRateAndRangeAndNoMix) {
  const auto composition = timelineOf({{trackAt(1, 0, 3)}, {trackAt(2, 1, 9)}}, 25);
  composition->getCompositionInstructions().at(0)->setStart(CMTimeMake(100, 1));  // takes no part
  for (const bool native : {false, true}) {
    const auto data =
        native ? LUMAVComposition::buildNativeCompositionData(composition) : LUMAVComposition::buildCompositionData(composition);
    const auto& video = *data->videoComposition();
    EXPECT_EQ(video.renderSize(), (CGSize{320, 180}));
    EXPECT_EQ(data->composition()->naturalSize(), (CGSize{320, 180}));
    EXPECT_EQ(video.frameDuration().value, 1);
    EXPECT_EQ(video.frameDuration().timescale, 25);
    ASSERT_EQ(video.instructions().size(), 1u);
    const CMTimeRange range = video.instructions()[0]->timeRange();
    EXPECT_EQ(CMTimeGetSeconds(range.start), 0.0);
    EXPECT_EQ(CMTimeGetSeconds(range.duration), 10.0);
    EXPECT_EQ(data->audioMix(), nullptr);
    EXPECT_EQ(static_cast<bool>(video.customVideoCompositorClass()), !native);
  }
}

TEST(Builders, NameTheClassThatWasAskedAndPutColoursOnTheNativeCompositionOnly) {
  const auto composition = timelineOf({{trackAt(1, 0, 1)}});
  composition->setColorPrimaries(AVVideoColorPrimaries_SMPTE_C);
  const auto own = LUMAVComposition::buildCompositionData(composition)->videoComposition();
  const auto other = LUMAVComposition::buildCompositionData<OtherCompositor>(composition)->videoComposition();
  EXPECT_FALSE(own->customVideoCompositorClass() == other->customVideoCompositorClass());
  EXPECT_EQ(own->customVideoCompositorClass().name, "LUMAVComposition");
  EXPECT_NE(std::dynamic_pointer_cast<OtherCompositor>(other->customVideoCompositorClass().make()), nullptr);
  EXPECT_EQ(own->colorPrimaries(), std::nullopt);
  const auto native = LUMAVComposition::buildNativeCompositionData(composition)->videoComposition();
  EXPECT_EQ(native->colorPrimaries(), AVVideoColorPrimaries_SMPTE_C);
  EXPECT_EQ(native->colorTransferFunction(), std::nullopt);
}

TEST(Builders, DressACompositionForAFilterLikeTheNativeOneButWithoutLayers) {
  const auto composition = timelineOf({{trackAt(1, 0, 3), trackAt(2, 1, 9)}}, 25);
  composition->setColorPrimaries(AVVideoColorPrimaries_SMPTE_C);
  composition->setColorYCbCrMatrix(AVVideoYCbCrMatrix_ITU_R_601_4);
  composition->setEnablePostProcessing(true);
  const auto native = LUMAVComposition::buildNativeCompositionData(composition);
  const auto data = LUMAVComposition::buildNativeCompositionWithCIFilterBlock(composition, [](const auto&) {});
  const auto& video = *data->videoComposition();
  EXPECT_EQ(data->composition()->tracks().size(), native->composition()->tracks().size());
  EXPECT_EQ(data->composition()->naturalSize(), (CGSize{320, 180}));
  EXPECT_EQ(video.renderSize(), (CGSize{320, 180}));
  EXPECT_EQ(video.frameDuration().value, 1);
  EXPECT_EQ(video.frameDuration().timescale, 25);
  EXPECT_EQ(video.colorPrimaries(), AVVideoColorPrimaries_SMPTE_C);
  EXPECT_EQ(video.colorYCbCrMatrix(), AVVideoYCbCrMatrix_ITU_R_601_4);
  EXPECT_EQ(video.colorTransferFunction(), std::nullopt);
  EXPECT_EQ(nativeInstruction(*data), nullptr);
  EXPECT_FALSE(video.customVideoCompositorClass());
  EXPECT_EQ(data->audioMix(), nullptr);
}

TEST(Builders, ShowALayerExactlyWhileOneOfItsTracksRuns) {
  const auto first = trackAt(1, 1, 2), second = trackAt(2, 5, 2), above = trackAt(3, 0, 10);
  first->setTransform(CGAffineTransformMake(1, 0, 0, 1, 20, 30));
  second->setTransform(CGAffineTransformMake(2, 0, 0, 2, 0, 0));
  const auto data = LUMAVComposition::buildNativeCompositionData(timelineOf({{first, second, above}}));
  const auto& layers = nativeInstruction(*data)->layerInstructions();
  ASSERT_EQ(layers.size(), 2u);
  EXPECT_EQ(layers[0]->trackID(), data->composition()->tracks()[0]->trackID());
  const struct {
    int milliseconds;
    float opacity;
    double tx;
    double a;
  } rows[] = {{0, 1, 0, 1},    {1000, 1, 20, 1}, {2999, 1, 20, 1}, {3000, 0, 20, 1}, {4999, 0, 20, 1},
              {5000, 1, 0, 2}, {6999, 1, 0, 2},  {7000, 0, 0, 2},  {60000, 0, 0, 2}};
  for (const auto& row : rows) {
    const CMTime time = CMTimeMake(row.milliseconds, 1000);
    EXPECT_EQ(layers[0]->opacityAt(time), row.opacity) << row.milliseconds;
    EXPECT_EQ(layers[0]->transformAt(time).tx, row.tx) << row.milliseconds;
    EXPECT_EQ(layers[0]->transformAt(time).a, row.a) << row.milliseconds;
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
