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

TEST(LayerInstruction, aKeyHoldsFromItsOwnTimeUntilTheNextAndRampsRunBetween) {
  const auto layer = newLayer();
  layer->setOpacity(0.75f, seconds(8));
  layer->setOpacityRampFromStartOpacity(1, 0, range(2, 4));
  layer->setTransformRampFromStartTransform(CGAffineTransformIdentity, kMove, range(2, 4));
  layer->setTransform(kMove, seconds(9));
  layer->setTransform(kTurn, CMTimeMake(18, 2));  // the later call wins
  struct {
    CMTime time;
    float opacity;
    double tx, ty;
  } const table[] = {{seconds(-5), 1, 0, 0},
                     {seconds(2), 1, 0, 0},
                     {seconds(3), 0.75f, 5, 7.5},
                     {CMTimeMake(5, 1), 0.25f, 15, 22.5},
                     {seconds(6), 0, 20, 30},
                     {CMTimeMake(7999, 1000), 0, 20, 30},
                     {CMTimeMake(240, 30), 0.75f, 20, 30},
                     {seconds(9), 0.75f, 50, 0},
                     {kCMTimePositiveInfinity, 0.75f, 50, 0}};
  for (const auto& row : table) {
    EXPECT_FLOAT_EQ(layer->opacityAt(row.time), row.opacity) << row.time;
    EXPECT_DOUBLE_EQ(layer->transformAt(row.time).tx, row.tx) << row.time;
    EXPECT_DOUBLE_EQ(layer->transformAt(row.time).ty, row.ty) << row.time;
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

TEST(LayerInstruction, timesThatAreNoNumbersAreIgnored) {
  const auto layer = newLayer();
  for (const CMTime& time : {kCMTimeInvalid, kCMTimeIndefinite, kCMTimePositiveInfinity, kCMTimeNegativeInfinity}) {
    layer->setOpacity(0, time);
    layer->setTransform(kTurn, time);
    layer->setOpacityRampFromStartOpacity(0, 0, {seconds(0), time});
  }
  layer->setOpacityRampFromStartOpacity(0, 0, range(0, -1));
  EXPECT_EQ(layer->transformAt(seconds(1)), CGAffineTransformIdentity);
  EXPECT_EQ(layer->opacityAt(seconds(9)), 1.0f);
}

TEST(VideoCompositionInstruction, needsTheTracksOfItsLayersOnce) {
  const auto composition = AVMutableComposition::composition();
  const auto first = composition->addMutableTrackWithMediaType(AVMediaTypeVideo, 5);
  const auto second = composition->addMutableTrackWithMediaType(AVMediaTypeVideo, 2);
  const auto instruction = AVMutableVideoCompositionInstruction::videoCompositionInstruction();
  using Layer = AVMutableVideoCompositionLayerInstruction;
  instruction->setLayerInstructions({Layer::videoCompositionLayerInstructionWithAssetTrack(first),
                                     Layer::videoCompositionLayerInstructionWithAssetTrack(second),
                                     Layer::videoCompositionLayerInstructionWithAssetTrack(first)});
  EXPECT_THAT(*instruction->requiredSourceTrackIDs(), testing::UnorderedElementsAre(5, 2));
}

TEST(AudioMix, volumesFollowTheirKeysAndRamps) {
  const auto volumes = AVMutableAudioMixInputParameters::audioMixInputParametersWithTrack(nullptr);
  volumes->setVolume(1, seconds(0));
  EXPECT_TRUE(volumes->isUnity());
  volumes->setVolumeRampFromStartVolume(0.2f, 1.0f, range(1, 2));
  volumes->setVolume(0.9f, kCMTimePositiveInfinity);
  volumes->setVolume(0.5f, seconds(4));
  volumes->setVolume(0.25f, CMTimeMake(4, 1));
  EXPECT_FALSE(volumes->isUnity());
  const double table[][2] = {{-1, 1}, {0.99, 1}, {1, 0.2}, {1.5, 0.4}, {2, 0.6}, {3, 1}, {3.99, 1}, {4, 0.25}, {99, 0.25}};
  for (const auto& [time, volume] : table) EXPECT_NEAR(volumes->volumeAtSeconds(time), volume, 1e-6) << time;
  const auto mix = AVMutableAudioMix::audioMix();
  mix->setInputParameters({volumes});
  const auto copy = mix->copy();
  volumes->setVolume(0, seconds(0));
  EXPECT_EQ(copy->inputParameters().at(0)->volumeAtSeconds(0), 1.0f) << "a copy does not see later volumes";
}

}  // namespace
}  // namespace vidloom
