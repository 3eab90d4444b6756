#include <gmock/gmock.h>

#include <set>

#include "tests/platform/avfoundation/CompositionFixtures.h"
#include "vidloom/platform/avfoundation/AVComposition.h"
#include "vidloom/platform/foundation/NSLog.h"

namespace vidloom {
namespace {

using test::DescribedFile;
using test::DescribedTrack;
using test::range;
using test::seconds;

const auto kFile = std::make_shared<DescribedFile>("clip.mp4");

std::string span(const CMTimeRange& r) {
  return NSStringWithFormat("%g..%g", CMTimeGetSeconds(r.start), CMTimeGetSeconds(CMTimeRangeGetEnd(r)));
}

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

bool insert(AVMutableCompositionTrack& track, double from, double to, double at) {
  return track.insertTimeRange(range(from, to - from), DescribedTrack::ofLength(seconds(100), kFile), seconds(at), nullptr);
}

// What random edits do not reach: see CompositionEditingModelTests for the rest.
TEST(CompositionTrack, editsHonourTheLimitsOfTheirArguments) {
  using Track = AVMutableCompositionTrack;
  const struct {
    const char* title;
    std::function<void(Track&)> edit;
    const char* afterwards;
  } steps[] = {
      {"a zero length changes nothing", [](Track& on) { EXPECT_TRUE(insert(on, 1, 1, 2)); }, ""},
      {"a range from before the source", [](Track& on) { EXPECT_TRUE(insert(on, -2, 1, 1)); }, "empty -> 0..1, 0..1 -> 1..2"},
      {"a range without an end at no time appends everything",
       [&](Track& on) {
         const auto source = DescribedTrack::ofLength(seconds(6), kFile);
         EXPECT_TRUE(on.insertTimeRange({seconds(2), kCMTimePositiveInfinity}, source, kCMTimeInvalid, nullptr));
       },
       "empty -> 0..1, 0..1 -> 1..2, 2..6 -> 2..6"},
      {"what cannot be done changes nothing",
       [](Track& on) {
         for (const CMTimeRange& bad : {kCMTimeRangeInvalid, range(2, -1), CMTimeRange{seconds(2), kCMTimePositiveInfinity}}) {
           on.insertEmptyTimeRange(bad);
           on.scaleTimeRange(bad, seconds(1));
         }
         on.insertEmptyTimeRange(range(-2, 1));
         on.insertEmptyTimeRange(range(6, 1));
         for (const CMTimeRange& bad : {kCMTimeRangeInvalid, CMTimeRange{kCMTimeIndefinite, seconds(1)}, range(6, 2)}) {
           on.removeTimeRange(bad);
         }
         for (const CMTimeRange& bad : {range(9, 1), range(1, 0)}) on.scaleTimeRange(bad, seconds(5));
         for (const CMTime& bad : {seconds(-5), kCMTimeInvalid, kCMTimePositiveInfinity}) on.scaleTimeRange(range(1, 1), bad);
       },
       "empty -> 0..1, 0..1 -> 1..2, 2..6 -> 2..6"},
      {"what lies beyond the end counts for the ratio", [](Track& on) { on.scaleTimeRange(range(4, 4), seconds(2)); },
       "empty -> 0..1, 0..1 -> 1..2, 2..4 -> 2..4, 4..6 -> 4..5"},
      {"a stretch to nothing removes", [](Track& on) { on.scaleTimeRange(range(1, 2), kCMTimeZero); },
       "empty -> 0..1, 3..4 -> 1..2, 4..6 -> 2..3"},
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

TEST(CompositionTrack, refusedInsertionsSayWhatWasWrongAndChangeNothing) {
  const auto source = DescribedTrack::ofLength(seconds(3), kFile);
  using Row = std::tuple<CMTimeRange, std::shared_ptr<AVAssetTrack>, CMTime, std::string>;
  const auto track = newTrack();
  ASSERT_TRUE(insert(*track, 0, 1, 0));
  for (const auto& [asked, from, time, words] :
       {Row{range(0, 1), nullptr, seconds(0), "no source track"}, Row{kCMTimeRangeInvalid, source, seconds(0), "range is invalid"},
        Row{range(0, -1), source, seconds(0), "range is invalid"},
        Row{{kCMTimeNegativeInfinity, seconds(1)}, source, seconds(0), "range is invalid"},
        Row{range(3, 1), source, seconds(0), "nothing in this range"},
        Row{range(-4, 2), source, seconds(0), "nothing in this range"},
        Row{range(0, 1), DescribedTrack::withSegments({}), seconds(0), "nothing in this range"},
        Row{range(0, 1), source, seconds(-1), "not a position"},
        Row{range(0, 1), source, kCMTimePositiveInfinity, "not a position"},
        Row{range(0, 1), source, CMTimeMake(std::numeric_limits<int64_t>::max(), 1), "too long"}}) {
    std::optional<NSError> error;
    EXPECT_FALSE(track->insertTimeRange(asked, from, time, &error)) << words;
    ASSERT_TRUE(error.has_value()) << words;
    EXPECT_THAT(error->localizedDescription(), testing::HasSubstr(words));
    EXPECT_EQ(error->localizedDescription().find("clip.mp4") != std::string::npos, from == source) << *error;
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
  const auto composition = AVMutableComposition::composition();
  const auto sound = composition->addMutableTrackWithMediaType(AVMediaTypeAudio, 0);
  const auto track = composition->addMutableTrackWithMediaType(AVMediaTypeVideo, 0);
  EXPECT_EQ(CMTimeCompare(composition->duration(), kCMTimeZero), 0);
  EXPECT_TRUE(CMTimeRangeEqual(track->timeRange(), kCMTimeRangeZero));
  const auto source = DescribedTrack::withSegments({{range(0, 9), range(2, 9), file, 1}});
  ASSERT_TRUE(track->insertTimeRange(range(0, 3), source, seconds(2), nullptr));
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
