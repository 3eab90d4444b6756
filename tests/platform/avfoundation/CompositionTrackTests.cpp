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

struct EditingStep {
  std::string title;
  std::function<void(AVMutableCompositionTrack&)> edit;
  std::string segmentsAfterwards;
};

/// Steps of one story run on the same track, one after the other.
class EditingStory : public testing::TestWithParam<std::vector<EditingStep>> {};

TEST_P(EditingStory, leavesTheSegmentsOfTheTable) {
  const auto track = newTrack();
  for (const EditingStep& step : GetParam()) {
    step.edit(*track);
    EXPECT_EQ(drawn(*track), step.segmentsAfterwards) << step.title;
  }
}

using Track = AVMutableCompositionTrack;

INSTANTIATE_TEST_SUITE_P(
    Insert, EditingStory,
    testing::Values(
        std::vector<EditingStep>{{"insert into nothing", [](Track& on) { EXPECT_TRUE(insert(on, 2, 5, 0)); }, "2..5 -> 0..3"},
                                 {"insert inside pushes the rest out", [](Track& on) { EXPECT_TRUE(insert(on, 10, 11, 1)); },
                                  "2..3 -> 0..1, 10..11 -> 1..2, 3..5 -> 2..4"},
                                 {"insert past the end fills the hole", [](Track& on) { EXPECT_TRUE(insert(on, 0, 1, 6)); },
                                  "2..3 -> 0..1, 10..11 -> 1..2, 3..5 -> 2..4, empty -> 4..6, 0..1 -> 6..7"},
                                 {"an invalid time appends",
                                  [](Track& on) {
                                    EXPECT_TRUE(on.insertTimeRange(range(7, 1), DescribedTrack::ofLength(seconds(9), kFile),
                                                                   kCMTimeInvalid, nullptr));
                                  },
                                  "2..3 -> 0..1, 10..11 -> 1..2, 3..5 -> 2..4, empty -> 4..6, 0..1 -> 6..7, 7..8 -> 7..8"}},
        std::vector<EditingStep>{
            {"a range beyond the source is cut", [](Track& on) { EXPECT_TRUE(insert(on, 0, 5, 0, 3)); }, "0..3 -> 0..3"},
            {"a zero length changes nothing", [](Track& on) { EXPECT_TRUE(insert(on, 1, 1, 2)); }, "0..3 -> 0..3"},
            {"a range from before the source is cut at its beginning", [](Track& on) { EXPECT_TRUE(insert(on, -2, 1, 3)); },
             "0..3 -> 0..3, 0..1 -> 3..4"},
            {"later material moves by what was inserted", [](Track& on) { EXPECT_TRUE(insert(on, 8, 20, 3, 10)); },
             "0..3 -> 0..3, 8..10 -> 3..5, 0..1 -> 5..6"},
            {"a range without an end takes everything",
             [](Track& on) {
               EXPECT_TRUE(on.insertTimeRange({seconds(4), kCMTimePositiveInfinity}, DescribedTrack::ofLength(seconds(6), kFile),
                                              seconds(0), nullptr));
             },
             "4..6 -> 0..2, 0..3 -> 2..5, 8..10 -> 5..7, 0..1 -> 7..8"}},
        std::vector<EditingStep>{{"edits of the source are carried over",
                                  [](Track& on) {
                                    const auto late = DescribedTrack::withSegments({{range(0, 1), kCMTimeRangeInvalid, nullptr, 0},
                                                                                    {range(1, 2), range(5, 2), kFile, 0},
                                                                                    {range(3, 2), kCMTimeRangeInvalid, nullptr, 0},
                                                                                    {range(5, 1), range(9, 1), kFile, 0}});
                                    EXPECT_TRUE(on.insertTimeRange(range(0.5, 5), late, seconds(0), nullptr));
                                  },
                                  "empty -> 0..0.5, 5..7 -> 0.5..2.5, empty -> 2.5..4.5, 9..9.5 -> 4.5..5"},
                                 {"an empty edit at the end is dropped",
                                  [](Track& on) {
                                    const auto gap = DescribedTrack::withSegments({{range(0, 1), range(0, 1), kFile, 0},
                                                                                   {range(1, 2), kCMTimeRangeInvalid, nullptr, 0},
                                                                                   {range(3, 1), range(1, 1), kFile, 0}});
                                    EXPECT_TRUE(on.insertTimeRange(range(0, 2), gap, seconds(5), nullptr));
                                  },
                                  "empty -> 0..0.5, 5..7 -> 0.5..2.5, empty -> 2.5..4.5, 9..9.5 -> 4.5..5, 0..1 -> 5..6"},
                                 {"an empty edit in the middle keeps its place and joins its neighbour",
                                  [](Track& on) {
                                    const auto gap = DescribedTrack::withSegments(
                                        {{range(0, 1), kCMTimeRangeInvalid, nullptr, 0}, {range(1, 1), range(0, 1), kFile, 0}});
                                    EXPECT_TRUE(on.insertTimeRange(range(0, 1), gap, seconds(3), nullptr));
                                  },
                                  "empty -> 0..0.5, 5..7 -> 0.5..2.5, empty -> 2.5..5.5, 9..9.5 -> 5.5..6, 0..1 -> 6..7"}}));

INSTANTIATE_TEST_SUITE_P(
    InsertEmptyAndRemove, EditingStory,
    testing::Values(
        std::vector<EditingStep>{
            {"empty on a fresh track", [](Track& on) { on.insertEmptyTimeRange(range(0, 5)); }, ""},
            {"the hole is padded by what comes later", [](Track& on) { EXPECT_TRUE(insert(on, 0, 2, 3)); },
             "empty -> 0..3, 0..2 -> 3..5"},
            {"empty at the very end", [](Track& on) { on.insertEmptyTimeRange(range(5, 1)); }, "empty -> 0..3, 0..2 -> 3..5"}},
        std::vector<EditingStep>{
            {"start", [](Track& on) { EXPECT_TRUE(insert(on, 0, 4, 0)); }, "0..4 -> 0..4"},
            {"empty inside", [](Track& on) { on.insertEmptyTimeRange(range(1, 2)); }, "0..1 -> 0..1, empty -> 1..3, 1..4 -> 3..6"},
            {"empty inside empty", [](Track& on) { on.insertEmptyTimeRange(range(2, 1)); },
             "0..1 -> 0..1, empty -> 1..4, 1..4 -> 4..7"},
            {"empty beside empty, in front", [](Track& on) { on.insertEmptyTimeRange(range(1, 1)); },
             "0..1 -> 0..1, empty -> 1..5, 1..4 -> 5..8"},
            {"empty beside empty, behind", [](Track& on) { on.insertEmptyTimeRange(range(5, 1)); },
             "0..1 -> 0..1, empty -> 1..6, 1..4 -> 6..9"},
            {"empty past the end", [](Track& on) { on.insertEmptyTimeRange(range(9, 3)); },
             "0..1 -> 0..1, empty -> 1..6, 1..4 -> 6..9"},
            {"invalid ranges",
             [](Track& on) {
               on.insertEmptyTimeRange(kCMTimeRangeInvalid);
               on.insertEmptyTimeRange(range(2, -1));
               on.insertEmptyTimeRange(range(-2, 1));
               on.insertEmptyTimeRange({seconds(2), kCMTimePositiveInfinity});
               on.removeTimeRange(kCMTimeRangeInvalid);
               on.removeTimeRange({kCMTimeIndefinite, seconds(1)});
             },
             "0..1 -> 0..1, empty -> 1..6, 1..4 -> 6..9"},
            {"removing media between empties joins them",
             [](Track& on) {
               EXPECT_TRUE(insert(on, 20, 21, 3));
               on.removeTimeRange(range(3, 1));
             },
             "0..1 -> 0..1, empty -> 1..6, 1..4 -> 6..9"},
            {"removing the media behind an empty removes that too", [](Track& on) { on.removeTimeRange(range(6, 3)); },
             "0..1 -> 0..1"}},
        std::vector<EditingStep>{
            {"start", [](Track& on) { EXPECT_TRUE(insert(on, 0, 4, 0)); }, "0..4 -> 0..4"},
            {"remove inside", [](Track& on) { on.removeTimeRange(range(1, 2)); }, "0..1 -> 0..1, 3..4 -> 1..2"},
            {"remove across the end", [](Track& on) { on.removeTimeRange(range(1, 9)); }, "0..1 -> 0..1"},
            {"remove past the end", [](Track& on) { on.removeTimeRange(range(1, 2)); }, "0..1 -> 0..1"},
            {"remove without an end",
             [](Track& on) {
               on.removeTimeRange({seconds(-1), kCMTimePositiveInfinity});
             },
             ""}}));

INSTANTIATE_TEST_SUITE_P(
    Scale, EditingStory,
    testing::Values(std::vector<EditingStep>{{"start",
                                              [](Track& on) {
                                                EXPECT_TRUE(insert(on, 0, 4, 0));
                                                EXPECT_TRUE(insert(on, 10, 12, 4));
                                              },
                                              "0..4 -> 0..4, 10..12 -> 4..6"},
                                             {"across a border", [](Track& on) { on.scaleTimeRange(range(2, 3), seconds(6)); },
                                              "0..2 -> 0..2, 2..4 -> 2..6, 10..11 -> 6..8, 11..12 -> 8..9"},
                                             {"no change for what cannot be done",
                                              [](Track& on) {
                                                on.scaleTimeRange(range(9, 1), seconds(5));
                                                on.scaleTimeRange(range(1, 0), seconds(5));
                                                on.scaleTimeRange(range(1, 1), seconds(-5));
                                                on.scaleTimeRange(range(1, 1), kCMTimeInvalid);
                                                on.scaleTimeRange(range(1, 1), kCMTimePositiveInfinity);
                                                on.scaleTimeRange({seconds(1), kCMTimePositiveInfinity}, seconds(1));
                                                on.scaleTimeRange(kCMTimeRangeInvalid, seconds(1));
                                              },
                                              "0..2 -> 0..2, 2..4 -> 2..6, 10..11 -> 6..8, 11..12 -> 8..9"},
                                             {"what lies beyond the end counts for the ratio",
                                              [](Track& on) { on.scaleTimeRange(range(8, 2), seconds(4)); },
                                              "0..2 -> 0..2, 2..4 -> 2..6, 10..11 -> 6..8, 11..12 -> 8..10"},
                                             {"to nothing", [](Track& on) { on.scaleTimeRange(range(1, 6), kCMTimeZero); },
                                              "0..1 -> 0..1, 10.5..11 -> 1..2, 11..12 -> 2..4"}},
                    std::vector<EditingStep>{
                        {"start", [](Track& on) { EXPECT_TRUE(insert(on, 2, 6, 1)); }, "empty -> 0..1, 2..6 -> 1..5"},
                        {"behind an empty", [](Track& on) { on.scaleTimeRange(range(1, 4), seconds(2)); },
                         "empty -> 0..1, 2..6 -> 1..3"}},
                    std::vector<EditingStep>{{"start",
                                              [](Track& on) {
                                                EXPECT_TRUE(insert(on, 0, 1, 0));
                                                EXPECT_TRUE(insert(on, 5, 6, 3));
                                              },
                                              "0..1 -> 0..1, empty -> 1..3, 5..6 -> 3..4"},
                                             {"empties scale too", [](Track& on) { on.scaleTimeRange(range(0, 4), seconds(2)); },
                                              "0..1 -> 0..0.5, empty -> 0.5..1.5, 5..6 -> 1.5..2"}},
                    std::vector<EditingStep>{
                        {"half speed",
                         [](Track& on) {
                           EXPECT_TRUE(insert(on, 0, 2, 0));
                           on.scaleTimeRange(range(0, 2), seconds(4));
                         },
                         "0..2 -> 0..4"},
                        {"a gap splits it by its rate", [](Track& on) { on.insertEmptyTimeRange(range(3, 1)); },
                         "0..1.5 -> 0..3, empty -> 3..4, 1.5..2 -> 4..5"},
                        {"the gap goes", [](Track& on) { on.removeTimeRange(range(3, 1)); }, "0..1.5 -> 0..3, 1.5..2 -> 3..4"},
                        {"media pushes the rest", [](Track& on) { EXPECT_TRUE(insert(on, 0, 1, 3)); },
                         "0..1.5 -> 0..3, 0..1 -> 3..4, 1.5..2 -> 4..5"}}));

TEST(CompositionTrack, insertsOfNestedTracksCarryTheirRatesOver) {
  const auto inner = newTrack(), outer = newTrack();
  ASSERT_TRUE(insert(*inner, 0, 4, 1));
  inner->scaleTimeRange(range(1, 4), seconds(2));
  ASSERT_TRUE(outer->insertTimeRange(range(0.5, 1.5), inner, seconds(0), nullptr));
  EXPECT_EQ(drawn(*outer), "empty -> 0..0.5, 0..2 -> 0.5..1.5");
  ASSERT_TRUE(inner->insertTimeRange(range(0, 3), inner, seconds(2), nullptr));
  EXPECT_EQ(drawn(*inner), "empty -> 0..1, 0..2 -> 1..2, empty -> 2..3, 0..4 -> 3..5, 2..4 -> 5..6") << "a track into itself";
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

TEST(CompositionTrack, describesItselfByItsFirstMedia) {
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
  const auto track = newTrack();
  EXPECT_TRUE(CMTimeRangeEqual(track->timeRange(), kCMTimeRangeZero));
  EXPECT_EQ(track->naturalTimeScale(), 600);
  EXPECT_EQ(track->naturalSize(), CGSizeZero);
  EXPECT_TRUE(track->formatDescriptions().empty());
  ASSERT_TRUE(track->insertTimeRange(range(0, 4), source, seconds(1), nullptr));
  EXPECT_TRUE(CMTimeRangeEqual(track->timeRange(), range(2, 3)));
  EXPECT_EQ(track->naturalTimeScale(), 12800);
  EXPECT_EQ(track->naturalSize(), (CGSize{640, 480}));
  EXPECT_EQ(track->nominalFrameRate(), 25.0f);
  const auto segments = track->segments();
  ASSERT_EQ(segments.size(), 2u);
  EXPECT_TRUE(segments[0].isEmpty());
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

TEST(Composition, measuresItselfByItsTracks) {
  const auto composition = AVMutableComposition::composition();
  EXPECT_EQ(CMTimeCompare(composition->duration(), kCMTimeZero), 0);
  const auto sound = composition->addMutableTrackWithMediaType(AVMediaTypeAudio, 0);
  const auto picture = composition->addMutableTrackWithMediaType(AVMediaTypeVideo, 0);
  EXPECT_EQ(picture->asset(), composition);
  MediaTrack video;
  video.kind = MediaKind::video;
  video.naturalSize = {320, 180};
  const auto file = std::make_shared<DescribedFile>("v.mp4", std::vector<MediaTrack>{video});
  ASSERT_TRUE(picture->insertTimeRange(range(0, 2), DescribedTrack::ofLength(seconds(5), file), seconds(0), nullptr));
  ASSERT_TRUE(insert(*sound, 0, 1, 2));
  EXPECT_EQ(CMTimeCompare(composition->duration(), seconds(3)), 0);
  EXPECT_EQ(composition->naturalSize(), (CGSize{320, 180}));
  composition->setNaturalSize({64, 64});
  EXPECT_EQ(composition->naturalSize(), (CGSize{64, 64}));
  composition->setNaturalSize(CGSizeZero);
  EXPECT_EQ(composition->naturalSize(), (CGSize{320, 180}));
}

}  // namespace
}  // namespace vidloom
