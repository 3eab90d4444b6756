#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/compositing/Timelines.h"
#include "tests/support/Fixtures.h"
#include "vidloom/compositing/AVAVLightCompositionInstruction.h"
#include "vidloom/platform/avfoundation/AVURLAsset.h"
#include "vidloom/timeline/LUMAVAssetTrack.h"
#include "vidloom/timeline/LUMCVPixelBufferTrack.h"

namespace vidloom {
namespace {

using ::testing::ElementsAre;
using testing::LogCapture;
using ::testing::StartsWith;

std::shared_ptr<LUMAVAssetTrack> mediaAt(uint64_t id, int startSeconds, int frameCount, double soundSeconds) {
  testing::ClipSpec spec;
  spec.frameCount = frameCount;
  if (frameCount == 0) spec.container = "m4a";
  spec.sound = testing::noise(static_cast<int64_t>(soundSeconds * 48000), 1);
  auto track = LUMAVAssetTrack::initWithAVAsset(AVAsset::assetWithURL(testing::makeClip(spec)), id);
  track->setStart(CMTimeMake(startSeconds, 1));
  return track;
}

TEST(LightInstruction, WritesALineForEachPictureThatItInsertsOrFailsToInsert) {
  const auto light = AVAVLightCompositionInstruction::initFPS(30);
  const auto comp = AVMutableComposition::composition();
  const auto shown = mediaAt(1, 1, 60, 1), trimmedAway = mediaAt(2, 10, 60, 1);
  trimmedAway->setLeftTrimOffset(CMTimeMake(3, 1));
  trimmedAway->setMuteAudioFlag(true);
  const auto soundOnly = mediaAt(3, 20, 0, 1);
  LogCapture log;
  for (const auto& track : {shown, trimmedAway, soundOnly}) light->process(track, nullptr, comp);
  light->process(trackAt(4, 30, 1), nullptr, comp);
  const std::string id = std::to_string(comp->tracks().front()->trackID());
  EXPECT_THAT(log.lines(), ElementsAre("insert for trackID: " + id + "  start time: 1.000000 duration: 2.000000",
                                       "insert for trackID: " + id + "  start time: 10.000000 duration: -1.000000",
                                       StartsWith("[LUMLog] Cannot insert track(AVMediaTypeVideo) function in "
                                                  "process:instruction:composition: error: ")));
}

TEST(LightInstruction, FillsStillsWithTheClipOfItsOwnRate) {
  for (const uint64_t fps : {15, 60}) {
    const auto light = AVAVLightCompositionInstruction::initFPS(fps);
    const auto comp = AVMutableComposition::composition();
    light->process(LUMCVPixelBufferTrack::initWithCVPixelBuffer(nullptr, 1, {kCMTimeZero, CMTimeMake(3, 1)}), nullptr, comp);
    light->finish();
    EXPECT_EQ(comp->tracks().front()->nominalFrameRate(), static_cast<float>(fps));
    EXPECT_EQ(CMTimeCompare(comp->duration(), CMTimeMake(3, 1)), 0);
  }
  LogCapture log;
  const auto light = AVAVLightCompositionInstruction::initFPS(24);
  light->process(LUMCVPixelBufferTrack::initWithId(1), nullptr, AVMutableComposition::composition());
  light->finish();
  EXPECT_EQ(light->timeRange().start.flags, 0u) << "it has no range";
  EXPECT_EQ(light->requiredSourceTrackIDs(), std::nullopt) << "all of them";
  EXPECT_EQ(light->passthroughTrackID(), kCMPersistentTrackID_Invalid);
  EXPECT_TRUE(light->enablePostProcessing() && light->containsTweening());
  EXPECT_TRUE(log.contains({"[LUMLog] Empty footage is NULL from call method LUMAVCompositionInstruction.finish()"}));
}

TEST(LightInstruction, KnowsWhichIdsLieOnVideoTracks) {
  const auto light = AVAVLightCompositionInstruction::initFPS(30);
  const auto comp = AVMutableComposition::composition();
  light->process(mediaAt(1, 0, 30, 1), nullptr, comp);
  light->process(mediaAt(2, 0, 0, 1), nullptr, comp);
  const auto video = light->composition_tracks().front()->track();
  EXPECT_EQ(light->trackIdForPixelBufferTrackId(1), 1u);
  EXPECT_EQ(light->trackIdForPixelBufferTrackId(2), std::nullopt) << "only on a track of sound";
  EXPECT_EQ(light->pixelBufferTrackIdForTrack(trackAt(1, 0, 1)), video->trackID());
  EXPECT_EQ(light->pixelBufferTrackIdForTrack(trackAt(2, 0, 1)), std::nullopt);
  EXPECT_EQ(light->preferdAVVideoCompositionTrackForRange(trackAt(3, 5, 1), AVMediaTypeVideo, comp), video);
}

}  // namespace
}  // namespace vidloom
