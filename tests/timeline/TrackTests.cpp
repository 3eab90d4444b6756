#include "tests/timeline/TimelineFixtures.h"
#include "vidloom/speed/LUMScaleContext.h"
#include "vidloom/timeline/LUMAVAssetTrack.h"
#include "vidloom/timeline/LUMCropData.h"

namespace vidloom {
namespace {

using test::assetOf;
using test::audioOf;
using test::range;
using test::seconds;
using test::videoOf;

TEST(Track, aSpeedDecidesTheDurationButNotThePlace) {
  const auto track = LUMTrack::initWithId(1);
  track->updateAssetDuration(seconds(10));
  track->setLeftTrimOffset(seconds(2));
  track->setScaleContext(LUMScaleContext::initWithBox({}, {}, {}, {}));
  EXPECT_EQ(CMTimeCompare(track->duration(), seconds(8)), 0) << "a list without segments";
  track->setScaleContext(LUMScaleContext::initWithLinearSpeed(2));
  EXPECT_EQ(CMTimeCompare(track->duration(), seconds(4)), 0);
  EXPECT_EQ(CMTimeCompare(track->trackGlobalTimeRange().duration, seconds(8)), 0);
}

TEST(TrackDeathTest, onlyMediaFilesTellWhereTheirSoundLies) {
  EXPECT_DEATH(static_cast<void>(LUMTrack::initWithId(17)->audioTrackGlobalTimeRange()), "audioTrackGlobalTimeRange: LUMTrack 17");
}

TEST(AVAssetTrack, turnedAndMirroredPicturesComeToTheOrigin) {
  struct {
    CGAffineTransform stored, fixed;
  } const table[] = {
      {{1, 0, 0, 1, 7, 8}, {1, 0, 0, 1, 0, 0}},      {{1, 0, 0, -1, 7, 8}, {1, 0, 0, -1, 0, 1080}},
      {{-1, 0, 0, 1, 7, 8}, {-1, 0, 0, 1, 1920, 0}}, {{-1, 0, 0, -1, 7, 8}, {-1, 0, 0, -1, 1920, 1080}},
      {{0, -1, 1, 0, 7, 8}, {0, -1, 1, 0, 0, 1920}}, {{0, 1, -1, 0, 7, 8}, {0, 1, -1, 0, 1080, 0}},
      {{0, 1, 1, 0, 7, 8}, {0, 1, 1, 0, 0, 0}},      {{0, -1, -1, 0, 7, 8}, {0, -1, -1, 0, 1080, 1920}},
      {{2, 0, 0, 2, 7, 8}, {2, 0, 0, 2, 7, 8}},      {{1, 0, 0, 1.0000000000000002, 7, 8}, {1, 0, 0, 1.0000000000000002, 7, 8}},
  };
  for (const auto& row : table) {
    const auto video = videoOf(1, {1920, 1080}, row.stored);
    EXPECT_EQ(fixedPreferredTransform(*video), row.fixed) << row.stored;
    const auto track = LUMAVAssetTrack::initWithAVAsset(assetOf({video}), 1);
    EXPECT_EQ(track->transform(), row.fixed);
  }
}

TEST(AVAssetTrack, measuresTheFileByWhatItHolds) {
  for (const auto& asset : {std::shared_ptr<AVAsset>(), assetOf({})}) {
    const auto track = LUMAVAssetTrack::initWithAVAsset(asset, 1);
    EXPECT_TRUE(CMTIME_IS_INVALID(track->assetDuration()));
    EXPECT_EQ(track->transform(), CGAffineTransform{});
    EXPECT_EQ(track->aspectSize(), CGSizeZero);
    EXPECT_FALSE(track->isOnlyAudioTrack());
  }
  const auto sound = LUMAVAssetTrack::initWithAVAsset(assetOf({audioOf(7), audioOf(9)}), 2);
  EXPECT_TRUE(sound->isOnlyAudioTrack());
  EXPECT_EQ(CMTimeCompare(sound->assetDuration(), seconds(7)), 0) << "the first track counts";
  const auto both = LUMAVAssetTrack::initWithAVAsset(assetOf({audioOf(8), videoOf(9, {1920, 1080}, {0, 1, -1, 0, 0, 0})}), 3);
  EXPECT_FALSE(both->isOnlyAudioTrack());
  EXPECT_EQ(both->transformSize(), (CGSize{1080, 1920}));
  both->updateAssetDuration(seconds(1));
  EXPECT_EQ(CMTimeCompare(both->assetDuration(), seconds(9)), 0);
}

TEST(AVAssetTrack, soundIsNeverLongerThanThePicture) {
  struct {
    std::string title;
    std::vector<std::shared_ptr<AVAssetTrack>> tracks;
    double left, right, start;
    double duration;
    CMTimeRange inner, global;
  } const table[] = {
      {"longer sound", {videoOf(9), audioOf(10)}, 1, 2, 4, 6, range(1, 6), range(4, 6)},
      {"shorter sound", {videoOf(9), audioOf(8)}, 0, 0, 4, 8, range(0, 8), range(4, 8)},
      {"trim longer than what is left", {videoOf(9), audioOf(4)}, 3, 0, 5, 1, kCMTimeRangeZero, range(5, 1)},
      {"trim as long as what is left", {videoOf(9), audioOf(4)}, 2, 0, 5, 2, range(2, 2), range(5, 2)},
      {"no sound", {videoOf(9)}, 1, 1, 4, 7, range(4, 7), range(4, 7)},
      {"only sound", {audioOf(6)}, 1, 1, 4, 4, range(1, 4), range(4, 4)},
  };
  for (const auto& row : table) {
    SCOPED_TRACE(row.title);
    const auto track = LUMAVAssetTrack::initWithAVAsset(assetOf(row.tracks), 1);
    track->setLeftTrimOffset(seconds(row.left));
    track->setRightTrimOffset(seconds(row.right));
    track->setStart(seconds(row.start));
    EXPECT_EQ(CMTimeCompare(track->audioDuration(), seconds(row.duration)), 0) << track->audioDuration();
    EXPECT_TRUE(CMTimeRangeEqual(track->audioTrackInnerTimeRange(), row.inner)) << track->audioTrackInnerTimeRange();
    EXPECT_TRUE(CMTimeRangeEqual(track->audioTrackGlobalTimeRange(), row.global)) << track->audioTrackGlobalTimeRange();
  }
}

TEST(AVAssetTrack, aCopyIsIndependentButPlaysTheSameFile) {
  const auto track = LUMAVAssetTrack::initWithAVAsset(assetOf({videoOf(9), audioOf(9)}), 1);
  track->setLeftTrimOffset(seconds(1));
  track->setRightTrimOffset(seconds(2));
  track->setStart(seconds(4));
  track->setMuteAudioFlag(true);
  track->setIgnoreRendering(true);
  track->setTransform({2, 0, 0, 2, 5, 6});
  track->setScaleContext(LUMScaleContext::initWithLinearSpeed(2));
  track->setCropData(
      LUMCropData::initWithTransform({1, 2, 3, 4, 5, 6}, CGRectMake(1, 2, 3, 4), CGRectMake(5, 6, 7, 8), 45, {9, 10}));
  track->userInfo()["name"] = 1;
  const auto copy = std::dynamic_pointer_cast<LUMAVAssetTrack>(track->copyWithId(77));
  ASSERT_NE(copy, nullptr);
  track->cropData()->setAngle(0);
  track->scaleContext()->setCachedDuration(seconds(1));
  track->userInfo().clear();
  EXPECT_EQ(copy->objectId(), 77u);
  EXPECT_EQ(copy->asset(), track->asset());
  EXPECT_TRUE(CMTimeRangeEqual(copy->trackInnerTimeRange(), range(1, 6)));
  EXPECT_EQ(CMTimeCompare(copy->duration(), seconds(3)), 0);
  EXPECT_EQ(CMTimeCompare(copy->start(), seconds(4)), 0);
  EXPECT_TRUE(copy->muteAudioFlag());
  EXPECT_TRUE(copy->ignoreRendering());
  EXPECT_EQ(copy->transform(), track->transform());
  const LUMCropData& crop = *copy->cropData();
  EXPECT_EQ(crop.angle(), 45);
  EXPECT_EQ(crop.box(), (CGSize{9, 10}));
  EXPECT_EQ(crop.absolute(), CGRectMake(1, 2, 3, 4));
  EXPECT_EQ(crop.percent(), CGRectMake(5, 6, 7, 8));
  EXPECT_EQ(crop.transform(), (CGAffineTransform{1, 2, 3, 4, 5, 6}));
  EXPECT_EQ(copy->userInfo().count("name"), 1u);
  EXPECT_NE(copy->scaleContext(), track->scaleContext());
  EXPECT_TRUE(CMTIME_IS_INVALID(copy->scaleContext()->cachedDuration()));
}

}  // namespace
}  // namespace vidloom
