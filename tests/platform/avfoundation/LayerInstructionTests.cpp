#include <gmock/gmock.h>

#include "tests/platform/avfoundation/CompositionFixtures.h"
#include "vidloom/platform/avfoundation/AVAudioMix.h"
#include "vidloom/platform/avfoundation/AVComposition.h"
#include "vidloom/platform/avfoundation/AVVideoComposition.h"

namespace vidloom {
namespace {

using test::range;
using test::seconds;

const CGAffineTransform kMove{1, 0, 0, 1, 20, 30}, kTurn{0, 1, -1, 0, 50, 0};

std::shared_ptr<AVMutableVideoCompositionLayerInstruction> newLayer() {
  return AVMutableVideoCompositionLayerInstruction::videoCompositionLayerInstructionWithAssetTrack(nullptr);
}

TEST(LayerInstruction, aKeyHoldsFromItsOwnTimeUntilTheNext) {
  const auto layer = newLayer();
  layer->setOpacity(0, seconds(3));
  layer->setTransform(kMove, seconds(1));
  layer->setOpacity(1, seconds(1));
  struct {
    CMTime time;
    CGAffineTransform transform;
    float opacity;
  } const table[] = {
      {seconds(-5), CGAffineTransformIdentity, 1},
      {seconds(0), CGAffineTransformIdentity, 1},
      {CMTimeMake(999, 1000), CGAffineTransformIdentity, 1},
      {CMTimeMake(999'999'999, 1'000'000'000), CGAffineTransformIdentity, 1},
      {CMTimeMake(30, 30), kMove, 1},
      {CMTimeMake(2999, 1000), kMove, 1},
      {CMTimeMake(90, 30), kMove, 0},
      {seconds(100), kMove, 0},
      {kCMTimePositiveInfinity, kMove, 0},
  };
  for (const auto& row : table) {
    EXPECT_EQ(layer->transformAt(row.time), row.transform) << row.time;
    EXPECT_EQ(layer->opacityAt(row.time), row.opacity) << row.time;
  }
}

TEST(LayerInstruction, keysCompareExactlyWhereDoublesCannot) {
  const auto layer = newLayer();
  const CMTime key = CMTimeMake((int64_t{1} << 60) + 1, 600), before = CMTimeMake(int64_t{1} << 60, 600);
  ASSERT_EQ(CMTimeGetSeconds(key), CMTimeGetSeconds(before));
  layer->setOpacity(0.25f, key);
  EXPECT_EQ(layer->opacityAt(before), 1.0f);
  EXPECT_EQ(layer->opacityAt(key), 0.25f);
}

TEST(LayerInstruction, theLaterCallWinsAndTimesThatAreNoNumbersAreIgnored) {
  const auto layer = newLayer();
  layer->setTransform(kTurn, CMTimeMake(2, 2));
  layer->setTransform(kMove, CMTimeMake(1, 1));
  layer->setOpacity(0.5f, seconds(0));
  for (const CMTime& time : {kCMTimeInvalid, kCMTimeIndefinite, kCMTimePositiveInfinity, kCMTimeNegativeInfinity}) {
    layer->setOpacity(0, time);
    layer->setTransform(kTurn, time);
    layer->setOpacityRampFromStartOpacity(0, 0, {seconds(0), time});
  }
  layer->setOpacityRampFromStartOpacity(0, 0, range(0, -1));
  EXPECT_EQ(layer->transformAt(seconds(1)), kMove);
  EXPECT_EQ(layer->opacityAt(seconds(9)), 0.5f);
}

TEST(LayerInstruction, rampsRunLinearlyAndHoldTheirEnd) {
  const auto layer = newLayer();
  layer->setOpacityRampFromStartOpacity(1, 0, range(2, 4));
  layer->setTransformRampFromStartTransform(CGAffineTransformIdentity, kMove, range(2, 4));
  layer->setOpacity(0.75f, seconds(8));
  struct {
    double time;
    float opacity;
    double tx;
  } const table[] = {{1.9, 1, 0},    {2, 1, 0},  {3, 0.75f, 5}, {4, 0.5f, 10},
                     {5, 0.25f, 15}, {6, 0, 20}, {7.9, 0, 20},  {8, 0.75f, 20}};
  for (const auto& row : table) {
    EXPECT_FLOAT_EQ(layer->opacityAt(seconds(row.time)), row.opacity) << row.time;
    EXPECT_DOUBLE_EQ(layer->transformAt(seconds(row.time)).tx, row.tx) << row.time;
    EXPECT_DOUBLE_EQ(layer->transformAt(seconds(row.time)).ty, row.tx * 1.5) << row.time;
  }
}

TEST(VideoCompositionInstruction, needsTheTracksOfItsLayersOnce) {
  const auto composition = AVMutableComposition::composition();
  const auto first = composition->addMutableTrackWithMediaType(AVMediaTypeVideo, 5);
  const auto second = composition->addMutableTrackWithMediaType(AVMediaTypeVideo, 2);
  const auto instruction = AVMutableVideoCompositionInstruction::videoCompositionInstruction();
  EXPECT_TRUE(CMTIMERANGE_IS_INVALID(instruction->timeRange()));
  EXPECT_TRUE(instruction->enablePostProcessing());
  using Layer = AVMutableVideoCompositionLayerInstruction;
  instruction->setLayerInstructions({Layer::videoCompositionLayerInstructionWithAssetTrack(first),
                                     Layer::videoCompositionLayerInstructionWithAssetTrack(second),
                                     Layer::videoCompositionLayerInstructionWithAssetTrack(first)});
  EXPECT_THAT(*instruction->requiredSourceTrackIDs(), testing::UnorderedElementsAre(5, 2));
}

TEST(VideoComposition, aCopyIsIndependentButSharesItsInstructions) {
  const auto original = AVMutableVideoComposition::videoComposition();
  EXPECT_EQ(CMTimeCompare(original->frameDuration(), kCMTimeZero), 0);
  EXPECT_EQ(original->renderScale(), 1.0f);
  const auto instruction = AVMutableVideoCompositionInstruction::videoCompositionInstruction();
  original->setInstructions({instruction});
  original->setRenderSize({10, 20});
  const auto copy = original->copy();
  original->setRenderSize({1, 1});
  original->setInstructions({});
  EXPECT_EQ(copy->renderSize(), (CGSize{10, 20}));
  ASSERT_EQ(copy->instructions().size(), 1u);
  EXPECT_EQ(copy->instructions()[0], instruction);
}

TEST(AudioMix, volumesFollowTheirKeysAndRamps) {
  const auto volumes = AVMutableAudioMixInputParameters::audioMixInputParametersWithTrack(nullptr);
  EXPECT_TRUE(volumes->isUnity());
  volumes->setVolume(1, seconds(0));
  EXPECT_TRUE(volumes->isUnity());
  volumes->setVolumeRampFromStartVolume(0.2f, 1.0f, range(1, 2));
  volumes->setVolume(0.9f, kCMTimePositiveInfinity);
  volumes->setVolume(0.5f, seconds(4));
  volumes->setVolume(0.25f, CMTimeMake(4, 1));
  EXPECT_FALSE(volumes->isUnity());
  const double table[][2] = {{-1, 1}, {0.99, 1}, {1, 0.2}, {1.5, 0.4}, {2, 0.6}, {3, 1}, {3.99, 1}, {4, 0.25}, {99, 0.25}};
  for (const auto& [time, volume] : table) EXPECT_NEAR(volumes->volumeAtSeconds(time), volume, 1e-6) << time;
  EXPECT_NEAR(volumes->volumeAt(CMTimeMake(3, 2)), 0.4, 1e-6);
}

TEST(AudioMix, aCopyDoesNotSeeLaterVolumes) {
  const auto mix = AVMutableAudioMix::audioMix();
  const auto volumes = AVMutableAudioMixInputParameters::audioMixInputParametersWithTrack(nullptr);
  volumes->setTrackID(3);
  mix->setInputParameters({volumes});
  const auto copy = mix->copy();
  volumes->setVolume(0, seconds(0));
  ASSERT_EQ(copy->inputParameters().size(), 1u);
  EXPECT_EQ(copy->inputParameters()[0]->trackID(), 3);
  EXPECT_EQ(copy->inputParameters()[0]->volumeAtSeconds(1), 1.0f);
}

}  // namespace
}  // namespace vidloom
