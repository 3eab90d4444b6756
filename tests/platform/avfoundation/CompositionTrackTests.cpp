#include <gmock/gmock.h>

#include <cstdio>
#include <set>

#include "tests/platform/avfoundation/CompositionFixtures.h"
#include "vidloom/platform/avfoundation/AVComposition.h"
#include "vidloom/platform/avfoundation/AVError.h"

namespace vidloom {
namespace {

using test::DescribedFile;
using test::DescribedTrack;
using test::range;
using test::seconds;

const auto kFile = std::make_shared<DescribedFile>("clip.mp4");

std::string number(const CMTime& time) {
  char text[32];
  std::snprintf(text, sizeof text, "%g", CMTimeGetSeconds(time));
  return text;
}

std::string span(const CMTimeRange& r) { return number(r.start) + ".." + number(CMTimeRangeGetEnd(r)); }

std::string drawn(const AVCompositionTrack& track) {
  std::string text;
  for (const MediaSegment& segment : track.mediaSegments()) {
    text += (text.empty() ? "" : ", ") + (segment.isEmpty() ? "empty" : span(segment.media)) + " -> " + span(segment.target);
  }
  return text;
}

std::shared_ptr<AVMutableCompositionTrack> newTrack() {
  static const auto composition = AVMutableComposition::composition();
  return composition->addMutableTrackWithMediaType(AVMediaTypeVideo, kCMPersistentTrackID_Invalid);
}

bool insert(AVMutableCompositionTrack& track, double from, double to, double at, double sourceLength = 100) {
  std::optional<NSError> error;
  return track.insertTimeRange(range(from, to - from), DescribedTrack::ofLength(seconds(sourceLength), kFile), seconds(at), &error);
}

// What random edits do not reach: see CompositionEditingModelTests for the rest.
TEST(CompositionTrack, editsHonourTheLimitsOfTheirArguments) {
  const auto gap = DescribedTrack::withSegments(
      {{range(0, 1), range(0, 1), kFile, 0}, {range(1, 2), kCMTimeRangeInvalid, nullptr, 0}, {range(3, 1), range(1, 1), kFile, 0}});
  using Track = AVMutableCompositionTrack;
  const auto insertAll = [](Track& on, const CMTimeRange& from, const std::shared_ptr<AVAssetTrack>& source, const CMTime& at) {
    EXPECT_TRUE(on.insertTimeRange(from, source, at, nullptr));
  };
  const struct {
    const char* title;
    std::function<void(Track&)> edit;
    const char* afterwards;
  } steps[] = {
      {"empty on a fresh track", [](Track& on) { on.insertEmptyTimeRange(range(0, 5)); }, ""},
      {"a range beyond the source is cut", [](Track& on) { EXPECT_TRUE(insert(on, 0, 5, 0, 3)); }, "0..3 -> 0..3"},
      {"a zero length changes nothing", [](Track& on) { EXPECT_TRUE(insert(on, 1, 1, 2)); }, "0..3 -> 0..3"},
      {"a range from before the source", [](Track& on) { EXPECT_TRUE(insert(on, -2, 1, 3)); }, "0..3 -> 0..3, 0..1 -> 3..4"},
      {"a range without an end at no time appends everything",
       [&](Track& on) {
         insertAll(on, {seconds(4), kCMTimePositiveInfinity}, DescribedTrack::ofLength(seconds(6), kFile), kCMTimeInvalid);
       },
       "0..3 -> 0..3, 0..1 -> 3..4, 4..6 -> 4..6"},
      {"an empty edit at the end is dropped", [&](Track& on) { insertAll(on, range(0, 2), gap, seconds(7)); },
       "0..3 -> 0..3, 0..1 -> 3..4, 4..6 -> 4..6, empty -> 6..7, 0..1 -> 7..8"},
      {"what cannot be done changes nothing",
       [](Track& on) {
         for (const CMTimeRange& bad : {kCMTimeRangeInvalid, range(2, -1), CMTimeRange{seconds(2), kCMTimePositiveInfinity}}) {
           on.insertEmptyTimeRange(bad);
           on.scaleTimeRange(bad, seconds(1));
         }
         on.insertEmptyTimeRange(range(-2, 1));
         on.insertEmptyTimeRange(range(8, 1));
         on.removeTimeRange(kCMTimeRangeInvalid);
         on.removeTimeRange({kCMTimeIndefinite, seconds(1)});
         on.removeTimeRange(range(8, 2));
         on.scaleTimeRange(range(9, 1), seconds(5));
         on.scaleTimeRange(range(1, 0), seconds(5));
         for (const CMTime& bad : {seconds(-5), kCMTimeInvalid, kCMTimePositiveInfinity}) on.scaleTimeRange(range(1, 1), bad);
       },
       "0..3 -> 0..3, 0..1 -> 3..4, 4..6 -> 4..6, empty -> 6..7, 0..1 -> 7..8"},
      {"what lies beyond the end counts for the ratio", [](Track& on) { on.scaleTimeRange(range(6, 4), seconds(8)); },
       "0..3 -> 0..3, 0..1 -> 3..4, 4..6 -> 4..6, empty -> 6..8, 0..1 -> 8..10"},
      {"a stretch to nothing removes", [](Track& on) { on.scaleTimeRange(range(1, 4), kCMTimeZero); },
       "0..1 -> 0..1, 5..6 -> 1..2, empty -> 2..4, 0..1 -> 4..6"},
      {"removing the media behind an empty removes that too", [](Track& on) { on.removeTimeRange(range(4, 9)); },
       "0..1 -> 0..1, 5..6 -> 1..2"},
      {"remove without an end",
       [](Track& on) {
         on.removeTimeRange({seconds(-1), kCMTimePositiveInfinity});
       },
       ""},
  };
  const auto track = newTrack();
  for (const auto& step : steps) {
    step.edit(*track);
    EXPECT_EQ(drawn(*track), step.afterwards) << step.title;
  }
}

TEST(CompositionTrack, mayBeInsertedIntoItself) {
  const auto track = newTrack();
  ASSERT_TRUE(insert(*track, 0, 4, 1));
  track->scaleTimeRange(range(1, 4), seconds(2));
  ASSERT_TRUE(track->insertTimeRange(range(0, 3), track, seconds(2), nullptr));
  EXPECT_EQ(drawn(*track), "empty -> 0..1, 0..2 -> 1..2, empty -> 2..3, 0..4 -> 3..5, 2..4 -> 5..6");
}

TEST(CompositionTrack, refusedInsertionsSayWhatWasWrongAndChangeNothing) {
  const auto source = DescribedTrack::ofLength(seconds(3), kFile);
  const CMTime huge = CMTimeMake(std::numeric_limits<int64_t>::max(), 1);
  struct {
    CMTimeRange range;
    std::shared_ptr<AVAssetTrack> source;
    CMTime time;
    std::string words;
  } const table[] = {
      {range(0, 1), nullptr, seconds(0), "no source track"},
      {kCMTimeRangeInvalid, source, seconds(0), "range is invalid"},
      {range(0, -1), source, seconds(0), "range is invalid"},
      {{kCMTimeNegativeInfinity, seconds(1)}, source, seconds(0), "range is invalid"},
      {range(3, 1), source, seconds(0), "nothing in this range"},
      {range(-4, 2), source, seconds(0), "nothing in this range"},
      {range(0, 1), DescribedTrack::withSegments({}), seconds(0), "nothing in this range"},
      {range(0, 1), source, seconds(-1), "not a position"},
      {range(0, 1), source, kCMTimePositiveInfinity, "not a position"},
      {range(0, 1), source, huge, "too long"},
  };
  const auto track = newTrack();
  ASSERT_TRUE(insert(*track, 0, 1, 0));
  for (const auto& row : table) {
    std::optional<NSError> error;
    EXPECT_FALSE(track->insertTimeRange(row.range, row.source, row.time, &error)) << row.words;
    ASSERT_TRUE(error.has_value()) << row.words;
    EXPECT_EQ(error->domain(), AVFoundationErrorDomain);
    EXPECT_EQ(error->code(), AVErrorUnknown);
    EXPECT_THAT(error->localizedDescription(), testing::HasSubstr(row.words));
    if (row.source == source) {
      EXPECT_THAT(error->localizedDescription(), testing::HasSubstr("clip.mp4"));
    }
  }
  EXPECT_EQ(drawn(*track), "0..1 -> 0..1");
}

TEST(CompositionTrack, describesItselfAndItsCompositionByItsFirstMedia) {
  MediaTrack audio, video;
  video.kind = MediaKind::video;
  video.trackID = 7;
  video.naturalSize = {640, 480};
  video.nominalFrameRate = 25;
  video.naturalTimeScale = 12800;
  video.edits = {{range(0, 1), kCMTimeInvalid}, {range(1, 9), seconds(2)}};
  const auto file = std::make_shared<DescribedFile>("two.mov", std::vector<MediaTrack>{audio, video});
  const auto source =
      DescribedTrack::withSegments({{range(0, 1), kCMTimeRangeInvalid, nullptr, 0}, {range(1, 9), range(2, 9), file, 1}});
  const auto composition = AVMutableComposition::composition();
  const auto sound = composition->addMutableTrackWithMediaType(AVMediaTypeAudio, 0);
  const auto track = composition->addMutableTrackWithMediaType(AVMediaTypeVideo, 0);
  EXPECT_EQ(CMTimeCompare(composition->duration(), kCMTimeZero), 0);
  EXPECT_TRUE(CMTimeRangeEqual(track->timeRange(), kCMTimeRangeZero));
  ASSERT_TRUE(track->insertTimeRange(range(0, 4), source, seconds(1), nullptr));
  ASSERT_TRUE(insert(*sound, 0, 1, 5));
  EXPECT_EQ(CMTimeCompare(composition->duration(), seconds(6)), 0);
  EXPECT_EQ(composition->naturalSize(), (CGSize{640, 480}));
  EXPECT_TRUE(CMTimeRangeEqual(track->timeRange(), range(2, 3)));
  EXPECT_EQ(track->naturalTimeScale(), 12800);
  EXPECT_EQ(track->nominalFrameRate(), 25.0f);
  const auto segments = track->segments();
  ASSERT_EQ(segments.size(), 2u);
  EXPECT_TRUE(CMTimeRangeEqual(segments[1].timeMapping.source, range(1, 3))) << "in the file's own time";
  EXPECT_EQ(segments[1].sourceURL, "two.mov");
  EXPECT_EQ(segments[1].sourceTrackID, 7);
}

TEST(Composition, neverGivesATrackIDTwice) {
  const auto composition = AVMutableComposition::composition();
  const auto add = [&](CMPersistentTrackID preferred) {
    return composition->addMutableTrackWithMediaType(AVMediaTypeVideo, preferred);
  };
  const auto first = add(1), seventh = add(7);
  EXPECT_EQ(first->trackID(), 1);
  EXPECT_EQ(seventh->trackID(), 7);
  composition->removeTrack(seventh);
  EXPECT_EQ(seventh->asset(), nullptr);
  std::set<CMPersistentTrackID> ids{1, 7};
  for (const CMPersistentTrackID preferred : {7, 7, 1, 0, 0, 0, 0, 0, 0, 0, -3}) {
    const CMPersistentTrackID id = add(preferred)->trackID();
    EXPECT_GT(id, 0);
    EXPECT_TRUE(ids.insert(id).second) << "id " << id << " came twice";
  }
  EXPECT_EQ(composition->tracks().size(), 12u);
}

}  // namespace
}  // namespace vidloom
