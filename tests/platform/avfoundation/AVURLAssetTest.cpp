#include "vidloom/platform/avfoundation/AVURLAsset.h"

#include <gtest/gtest.h>

#include "tests/platform/dispatch/DispatchTesting.h"
#include "tests/support/Fixtures.h"

namespace vidloom {
namespace {

using testing::makeClip;

TEST(AVURLAsset, OffersTheFilesTracksWhichOutliveItOnceItIsLoaded) {
  auto asset = AVAsset::assetWithURL(makeClip({.bFrames = 2, .sound = testing::sine(440, 60000, 48000)}));
  const auto called = dispatch_semaphore_create(0);
  asset->loadValuesAsynchronouslyForKeys({"tracks", "duration"}, [called] { dispatch_semaphore_signal(called); });
  EXPECT_TRUE(cameThrough(called));
  ASSERT_EQ(asset->tracks().size(), 2u);
  const auto pictures = asset->tracksWithMediaType(AVMediaTypeVideo), sound = asset->tracksWithMediaType(AVMediaTypeAudio);
  ASSERT_EQ(pictures.size(), 1u);
  ASSERT_EQ(sound.size(), 1u);
  EXPECT_EQ(CMTimeCompare(pictures[0]->timeRange().duration, CMTimeMake(1, 1)), 0);
  EXPECT_EQ(CMTimeCompare(asset->duration(), CMTimeMake(5, 4)), 0);
  EXPECT_EQ(asset->trackWithTrackID(sound[0]->trackID()), sound[0]);
  EXPECT_EQ(asset->trackWithTrackID(99), nullptr);
  EXPECT_EQ(pictures[0]->asset(), asset);
  asset.reset();
  EXPECT_EQ(pictures[0]->asset(), nullptr);
  EXPECT_EQ(pictures[0]->naturalSize(), CGSizeMake(320, 180));
  EXPECT_EQ(pictures[0]->naturalTimeScale(), 15360);
}

TEST(AVURLAsset, AMissingFileShowsAsEmptyAndKeepsTheReason) {
  const auto asset = AVURLAsset::initWithURL("/nowhere/lost.mp4");
  EXPECT_TRUE(asset->tracks().empty());
  EXPECT_EQ(CMTimeCompare(asset->duration(), kCMTimeZero), 0);
  std::optional<NSError> error;
  EXPECT_EQ(asset->statusOfValueForKey("tracks", &error), AVKeyValueStatusFailed);
  EXPECT_NE(error.value_or(NSError{}).localizedDescription().find("/nowhere/lost.mp4"), std::string::npos);
}

TEST(AVURLAsset, EnabledTracksComeFirst) {
  const auto twice = makeClip({.frameCount = 5, .videoOptions = {"-map", "0:v", "-map", "0:v", "-disposition:v", "default"}});
  const auto asset = AVAsset::assetWithURL(testing::withTrackDisabled(twice, "vide"));
  const auto tracks = asset->tracksWithMediaType(AVMediaTypeVideo);
  ASSERT_EQ(tracks.size(), 2u);
  EXPECT_TRUE(tracks[0]->isEnabled());
  EXPECT_FALSE(tracks[1]->isEnabled());
  EXPECT_EQ(asset->tracks()[0], tracks[1]);
}

}  // namespace
}  // namespace vidloom
