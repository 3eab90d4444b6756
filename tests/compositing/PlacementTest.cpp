#include <gtest/gtest.h>

#include <algorithm>
#include <random>

#include "tests/compositing/Timelines.h"
#include "tests/support/Fixtures.h"
#include "vidloom/platform/avfoundation/AVURLAsset.h"
#include "vidloom/timeline/LUMAVAssetTrack.h"
#include "vidloom/timeline/LUMGlobal.h"

namespace vidloom {
namespace {

using testing::LogCapture;
using Ids = std::vector<std::vector<uint64_t>>;

Ids placedVideo(const std::vector<Tracks>& instructions) {
  return idsPlaced(*pipelineOf(*LUMAVComposition::buildCompositionData(timelineOf(instructions))), AVMediaTypeVideo);
}

TEST(Placement, ReusesACompositionTrackOnlyWhereRangesLieApart) {
  const auto first = trackAt(1, 0, 2);
  const struct {
    const char* what;
    std::shared_ptr<LUMTrack> second;
    Ids placed;
  } rows[] = {
      {"touching", trackAt(2, 2, 1), {{1}, {2}}},
      {"apart", trackAt(2, 3, 1), {{1, 2}}},
      {"apart by one tick", trackAt(2, CMTimeMake(1201, 600), CMTimeMake(600, 600)), {{1, 2}}},
      {"overlapping", trackAt(2, 1, 3), {{1}, {2}}},
      {"inside", trackAt(2, CMTimeMake(1, 2), CMTimeMake(1, 2)), {{2}, {1}}},
      {"the same", trackAt(2, 0, 2), {{1}, {2}}},
      {"of no length, at the end", trackAt(2, 2, 0), {{1}, {2}}},
  };
  for (const auto& row : rows) EXPECT_EQ(placedVideo({{first, row.second}}), row.placed) << row.what;
}

TEST(Placement, PlacesATrackOfTwoInstructionsTwice) {
  const auto shared = trackAt(7, 0, 1);
  EXPECT_EQ(placedVideo({{shared}, {trackAt(8, 5, 1), shared}}), (Ids{{7, 8}, {7}}));
}

/// Of tracks in the order of their ends, each lies on the first composition track where nothing meets it.
TEST(Placement, TakesTheFirstFreeCompositionTrackOnRandomTimelines) {
  const auto seed = std::random_device{}();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  const auto tenths = [&random](int end) { return CMTimeMake(static_cast<int64_t>(random() % static_cast<uint32_t>(end)), 10); };
  const CMTime odd[] = {kCMTimeInvalid, kCMTimePositiveInfinity, kCMTimeNegativeInfinity};
  for (int round = 0; round < 200; ++round) {
    Tracks tracks;
    for (size_t count = 1 + random() % 120; tracks.size() < count;) {  // on a grid, so that they often touch
      const auto track = trackAt(tracks.size(), tenths(200), tenths(30));
      if (random() % 10 == 0) track->setLeftTrimOffset(tenths(200));  // may trim away more than there is
      if (random() % 20 == 0 && round % 2 == 1) track->setStart(odd[random() % 3]);
      if (random() % 20 == 0 && round % 2 == 1) track->updateAssetDuration(odd[random() % 3]);
      tracks.push_back(track);
    }
    const auto placed = placedVideo({{tracks.begin(), tracks.begin() + 1}, {tracks.begin() + 1, tracks.end()}});
    std::stable_sort(tracks.begin(), tracks.end(), [](const auto& a, const auto& b) {
      return CMTimeCompare(CMTimeAdd(a->start(), a->duration()), CMTimeAdd(b->start(), b->duration())) < 0;
    });
    std::vector<Tracks> rows;
    for (const auto& track : tracks) {
      const auto isFree = [&](const Tracks& row) {
        return std::none_of(row.begin(), row.end(), [&](const auto& other) {
          return LUMGlobal::CMTIMERANGE_IS_INTERSECT(other->trackGlobalTimeRange(), track->trackGlobalTimeRange());
        });
      };
      const auto free = std::find_if(rows.begin(), rows.end(), isFree);
      const auto row = free == rows.end() ? rows.insert(free, Tracks()) : free;
      ASSERT_EQ(placed.at(static_cast<size_t>(row - rows.begin())).at(row->size()), track->objectId()) << "round " << round;
      row->push_back(track);
    }
    ASSERT_EQ(placed.size(), rows.size()) << "round " << round;
  }
}

TEST(Placement, SeesWhatTheHostChangedInTheListBetweenTwoTracks) {
  const auto pipeline = LUMAVCompositionInstruction::initWithComposition(timelineOf({}));
  const auto comp = AVMutableComposition::composition();
  const auto first = pipeline->preferdAVVideoCompositionTrackForRange(trackAt(1, 0, 2), AVMediaTypeVideo, comp);
  pipeline->composition_tracks().front()->innerTracks() = {trackAt(9, 10, 2)};
  EXPECT_EQ(pipeline->preferdAVVideoCompositionTrackForRange(trackAt(2, 1, 2), AVMediaTypeVideo, comp), first);
  pipeline->composition_tracks().front()->innerTracks() = {trackAt(8, 10, 20), trackAt(9, 12, 2)};  // may overlap
  EXPECT_NE(pipeline->preferdAVVideoCompositionTrackForRange(trackAt(3, 20, 1), AVMediaTypeVideo, comp), first);
  pipeline->setComposition_tracks({});
  EXPECT_NE(pipeline->preferdAVVideoCompositionTrackForRange(trackAt(4, 50, 1), AVMediaTypeVideo, comp), first);
}

TEST(Placement, FindsTheVideoTrackOfAnObjectIdTheLastOneWinning) {
  const auto pipeline = LUMAVCompositionInstruction::initWithComposition(timelineOf({}));
  const auto comp = AVMutableComposition::composition();
  pipeline->preferdAVVideoCompositionTrackForRange(trackAt(1, 0, 2), AVMediaTypeVideo, comp);
  const auto later = pipeline->preferdAVVideoCompositionTrackForRange(trackAt(1, 0, 2), AVMediaTypeVideo, comp);
  pipeline->preferdAVVideoCompositionTrackForRange(trackAt(2, 0, 2), AVMediaTypeAudio, comp);
  EXPECT_EQ(pipeline->pixelBufferTrackIdForTrack(trackAt(1, 9, 9)), later->trackID());
  EXPECT_EQ(pipeline->pixelBufferTrackIdForTrack(trackAt(2, 0, 2)), std::nullopt);
  EXPECT_EQ(pipeline->pixelBufferTrackIdForTrack(nullptr), std::nullopt);
}

// ---- with media ----

std::shared_ptr<AVAsset> clip(double videoSeconds, double audioSeconds) {
  const auto sound = testing::noise(static_cast<int64_t>(audioSeconds * 48000), 1);
  return AVAsset::assetWithURL(testing::makeClip({.frameCount = static_cast<int>(videoSeconds * 30), .sound = sound}));
}

std::shared_ptr<LUMAVAssetTrack> mediaTrack(uint64_t id, const std::shared_ptr<AVAsset>& asset, const CMTime& start = kCMTimeZero) {
  auto track = LUMAVAssetTrack::initWithAVAsset(asset, id);
  track->setStart(start);
  return track;
}

struct Placed {
  Ids video, audio;
  std::shared_ptr<AVMutableComposition> layout;
};

Placed place(const Tracks& tracks) {
  const auto data = LUMAVComposition::buildCompositionData(timelineOf({tracks}));
  const auto pipeline = pipelineOf(*data);
  return {idsPlaced(*pipeline, AVMediaTypeVideo), idsPlaced(*pipeline, AVMediaTypeAudio), data->composition()};
}

TEST(PlacementOfMedia, LeavesOutWhatIsMutedTrimmedAwayOrNotInTheFile) {
  const auto asset = clip(2, 1);
  const auto muted = mediaTrack(1, asset), trimmedAway = mediaTrack(2, asset);
  muted->setMuteAudioFlag(true);
  trimmedAway->setLeftTrimOffset(CMTimeMake(3, 2));
  const auto song = testing::makeClip({.frameCount = 0, .sound = testing::noise(48000, 2), .container = "m4a"});
  const auto placed = place({muted, trimmedAway, mediaTrack(3, AVAsset::assetWithURL(song))});
  EXPECT_EQ(placed.video, (Ids{{2}, {1}}));
  EXPECT_EQ(placed.audio, (Ids{{3}}));
}

TEST(PlacementOfMedia, ChoosesTracksOfSoundByTheRangeOfThePicture) {
  const auto asset = clip(2, 1);
  const auto placed = place({mediaTrack(1, asset), mediaTrack(2, asset, CMTimeMake(3, 2))});
  EXPECT_EQ(placed.audio, (Ids{{1}, {2}}));  // the sounds lie half a second apart, the pictures overlap
}

TEST(PlacementOfMedia, LogsWhatCannotBeInsertedAndGoesOn) {
  const auto asset = clip(1, 1);
  const auto nothingLeft = mediaTrack(1, asset);
  nothingLeft->setLeftTrimOffset(CMTimeMake(10, 1));
  LogCapture log;
  const auto placed = place({nothingLeft, mediaTrack(2, asset)});
  EXPECT_TRUE(
      log.contains({"[LUMLog] Cannot insert track(AVMediaTypeVideo) function in process:instruction:composition: error: "}));
  EXPECT_EQ(placed.video, (Ids{{1, 2}}));  // it ends before it starts and takes no room
  EXPECT_NEAR(CMTimeGetSeconds(placed.layout->duration()), 1.0, 0.03);
}

}  // namespace
}  // namespace vidloom
