#include <gtest/gtest.h>

#include <algorithm>
#include <random>

#include "tests/compositing/Timelines.h"
#include "tests/support/Fixtures.h"
#include "vidloom/platform/avfoundation/AVURLAsset.h"
#include "vidloom/speed/LUMScaleContext.h"
#include "vidloom/speed/LUMScalePoint.h"
#include "vidloom/speed/PWBezier.h"
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

TEST(Placement, IsThatOfThePlainLoopOnRandomTimelines) {
  const auto seed = std::random_device{}();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  std::uniform_int_distribution<int> count(1, 120), start(0, 200), length(0, 30), oneIn(0, 9);
  for (int round = 0; round < 200; ++round) {
    Tracks tracks;
    for (int i = count(random); i > 0; --i) {  // on a grid, so that they often touch
      tracks.push_back(trackAt(tracks.size(), CMTimeMake(start(random), 10), CMTimeMake(length(random), 10)));
      if (oneIn(random) == 0) tracks.back()->setLeftTrimOffset(CMTimeMake(start(random), 10));  // may trim away more than there is
      if (oneIn(random) == 0 && round % 2 == 1) {
        const CMTime odd[] = {kCMTimeInvalid, kCMTimePositiveInfinity, kCMTimeNegativeInfinity};
        oneIn(random) % 2 ? tracks.back()->setStart(odd[i % 3]) : tracks.back()->updateAssetDuration(odd[i % 3]);
      }
    }
    Tracks sorted = tracks;
    std::stable_sort(sorted.begin(), sorted.end(), [](const auto& a, const auto& b) {
      return CMTimeCompare(CMTimeAdd(a->start(), a->duration()), CMTimeAdd(b->start(), b->duration())) < 0;
    });
    std::vector<Tracks> expected;
    for (const auto& track : sorted) {
      const auto free = std::find_if(expected.begin(), expected.end(), [&](const Tracks& row) {
        return std::none_of(row.begin(), row.end(), [&](const auto& other) {
          return LUMGlobal::CMTIMERANGE_IS_INTERSECT(other->trackGlobalTimeRange(), track->trackGlobalTimeRange());
        });
      });
      (free == expected.end() ? expected.emplace_back() : *free).push_back(track);
    }
    Ids expectedIds;
    for (const Tracks& row : expected) {
      expectedIds.emplace_back();
      for (const auto& track : row) expectedIds.back().push_back(track->objectId());
    }
    const auto middle = tracks.begin() + static_cast<ptrdiff_t>(tracks.size() / 2);
    ASSERT_EQ(placedVideo({{tracks.begin(), middle}, {middle, tracks.end()}}), expectedIds) << "round " << round;
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

TEST(Placement, KeepsPicturesAndSoundOnTracksOfTheirOwn) {
  const auto pipeline = LUMAVCompositionInstruction::initWithComposition(timelineOf({}));
  const auto comp = AVMutableComposition::composition();
  const auto video = pipeline->preferdAVVideoCompositionTrackForRange(trackAt(1, 0, 2), AVMediaTypeVideo, comp);
  const auto audio = pipeline->preferdAVVideoCompositionTrackForRange(trackAt(1, 0, 2), AVMediaTypeAudio, comp);
  EXPECT_NE(video, audio);
  EXPECT_EQ(audio->mediaType(), AVMediaTypeAudio);
  EXPECT_EQ(pipeline->preferdAVVideoCompositionTrackForRange(trackAt(2, 3, 2), AVMediaTypeAudio, comp), audio);
  EXPECT_EQ(comp->tracks().size(), 2u);
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

double endSeconds(const AVAssetTrack& track) { return CMTimeGetSeconds(CMTimeRangeGetEnd(track.timeRange())); }

TEST(PlacementOfMedia, LaysPictureAndSoundAtTheTracksStart) {
  const auto track = mediaTrack(1, clip(2, 2), CMTimeMake(1, 1));
  track->setLeftTrimOffset(CMTimeMake(1, 2));
  const auto placed = place({track});
  EXPECT_EQ(placed.video, (Ids{{1}}));
  EXPECT_EQ(placed.audio, (Ids{{1}}));
  for (const auto& onTrack : placed.layout->tracks()) {
    EXPECT_NEAR(CMTimeGetSeconds(onTrack->timeRange().start), 1.0, 1e-9);
    EXPECT_NEAR(endSeconds(*onTrack), 2.5, 0.025) << onTrack->mediaType();
  }
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

TEST(PlacementOfMedia, StretchesPictureAndSoundByTheTracksSpeed) {
  const CGRect box = CGRectMake(0, 0, 100, 100);
  const CGPoint slow = {0, 75}, fast = {100, 25};
  const auto curve = LUMScaleContext::initWithBox(
      box, {LUMScalePoint::initWithX(0, 0, slow), LUMScalePoint::initWithX(0.5f, 0, fast), LUMScalePoint::initWithX(1, 0, slow)},
      {PWBezier::initWithStartPoint(slow, fast), PWBezier::initWithStartPoint(fast, slow)}, {});
  for (const auto& speed : {LUMScaleContext::initWithLinearSpeed(2), LUMScaleContext::initWithLinearSpeed(0.5), curve}) {
    const auto track = mediaTrack(1, clip(2, 2), CMTimeMake(1, 1));
    track->setScaleContext(speed);
    const auto placed = place({track, mediaTrack(2, clip(1, 1), CMTimeMake(20, 1))});
    ASSERT_EQ(placed.layout->tracks().size(), 2u);
    const double expectedEnd = 1 + CMTimeGetSeconds(track->duration());
    for (const auto& onTrack : placed.layout->tracks()) {
      const auto segments = onTrack->mediaSegments();
      const auto last =
          std::find_if(segments.rbegin(), segments.rend(), [](const MediaSegment& segment) { return segment.isEmpty(); });
      EXPECT_NEAR(CMTimeGetSeconds(last->target.start), expectedEnd, 0.03) << onTrack->mediaType();
    }
  }
}

}  // namespace
}  // namespace vidloom
