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
  using Row = std::tuple<CMTime, float, double, double>;
  for (const auto& [time, opacity, tx, ty] :
       {Row{seconds(-5), 1, 0, 0}, Row{seconds(2), 1, 0, 0}, Row{seconds(3), 0.75f, 5, 7.5}, Row{CMTimeMake(5, 1), 0.25f, 15, 22.5},
        Row{seconds(6), 0, 20, 30}, Row{CMTimeMake(7999, 1000), 0, 20, 30}, Row{CMTimeMake(240, 30), 0.75f, 20, 30},
        Row{seconds(9), 0.75f, 50, 0}, Row{kCMTimePositiveInfinity, 0.75f, 50, 0}}) {
    EXPECT_FLOAT_EQ(layer->opacityAt(time), opacity) << time;
    EXPECT_DOUBLE_EQ(layer->transformAt(time).tx, tx) << time;
    EXPECT_DOUBLE_EQ(layer->transformAt(time).ty, ty) << time;
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
  const auto instruction = AVMutableVideoCompositionInstruction::videoCompositionInstruction();
  const auto layerOf = [&](CMPersistentTrackID trackID) {
    return AVMutableVideoCompositionLayerInstruction::videoCompositionLayerInstructionWithAssetTrack(
        composition->addMutableTrackWithMediaType(AVMediaTypeVideo, trackID));
  };
  const auto twice = layerOf(5);
  instruction->setLayerInstructions({twice, layerOf(2), twice});
  EXPECT_THAT(*instruction->requiredSourceTrackIDs(), testing::UnorderedElementsAre(5, 2));
}

TEST(AudioMix, theLaterOfTwoVolumesWinsAndACopyDoesNotSeeLaterOnes) {
  const auto volumes = AVMutableAudioMixInputParameters::audioMixInputParametersWithTrack(nullptr);
  volumes->setVolume(1, seconds(0));
  EXPECT_TRUE(volumes->isUnity());
  volumes->setVolume(0.9f, kCMTimePositiveInfinity);
  volumes->setVolume(0.5f, seconds(4));
  volumes->setVolume(0.25f, CMTimeMake(4, 1));
  EXPECT_FALSE(volumes->isUnity());
  for (const auto& [time, volume] : {std::pair{-1.0, 1.0f}, {3.99, 1}, {4, 0.25f}, {99, 0.25f}}) {
    EXPECT_EQ(volumes->volumeAtSeconds(time), volume) << time;
  }
  const auto mix = AVMutableAudioMix::audioMix();
  mix->setInputParameters({volumes});
  const auto copy = mix->copy();
  volumes->setVolume(0, seconds(0));
  EXPECT_EQ(copy->inputParameters().at(0)->volumeAtSeconds(0), 1.0f);
}

}  // namespace
}  // namespace vidloom
