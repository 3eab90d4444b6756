#include <gmock/gmock.h>

#include "tests/timeline/TimelineFixtures.h"
#include "vidloom/timeline/LUMAVAssetTrack.h"
#include "vidloom/timeline/LUMComposition.h"
#include "vidloom/timeline/LUMInstruction.h"

namespace vidloom {
namespace {

using test::assetOf;
using test::seconds;
using test::videoOf;
using testing::ElementsAre;

std::shared_ptr<LUMTrack> trackAt(uint64_t id, double start, double duration) {
  auto track = LUMTrack::initWithId(id);
  track->updateAssetDuration(seconds(duration));
  track->setStart(seconds(start));
  return track;
}

std::shared_ptr<LUMInstruction> instructionAt(uint64_t id, double start, const std::vector<std::shared_ptr<LUMTrack>>& tracks) {
  auto instruction = LUMInstruction::initWithId(id);
  instruction->setStart(seconds(start));
  instruction->addTracks(tracks);
  return instruction;
}

template <class Objects>
std::vector<uint64_t> idsOf(const Objects& objects) {
  std::vector<uint64_t> ids;
  for (const auto& object : objects) ids.push_back(object->objectId());
  return ids;
}

TEST(Instruction, lastsUntilItsLatestTrackEnds) {
  const auto instruction = LUMInstruction::initWithId(1);
  EXPECT_TRUE(CMTimeRangeEqual(instruction->timeRange(), kCMTimeRangeZero));
  const auto last = trackAt(1, 1, 2);
  instruction->addTracks({last, nullptr, trackAt(2, 0, 2.5), trackAt(3, -9, 2)});
  EXPECT_EQ(CMTimeCompare(instruction->duration(), seconds(3)), 0);
  last->setStart(seconds(9));
  EXPECT_EQ(CMTimeCompare(instruction->duration(), seconds(3)), 0) << "until told";
  instruction->invalidate();
  EXPECT_EQ(CMTimeCompare(instruction->duration(), seconds(11)), 0);
  EXPECT_EQ(instruction->removeTrack(1), last);
  EXPECT_EQ(CMTimeCompare(instruction->duration(), seconds(2.5)), 0);
}

TEST(Instruction, ofEqualIdsTheFirstAnswersAndRemovingTakesEveryOccurrenceOfIt) {
  const auto first = trackAt(5, 0, 1), second = trackAt(5, 0, 4);
  const auto instruction = instructionAt(1, 0, {first, second, first});
  EXPECT_EQ(instruction->removeTrack(5), first);
  EXPECT_THAT(instruction->getAllTracks(), ElementsAre(second));
}

TEST(Composition, editsByIdsAndIgnoresUnknownOnes) {
  const auto composition = LUMComposition::initWithSize({2, 2}, 30);
  const auto first = instructionAt(7, 0, {}), again = instructionAt(7, 0, {}), other = instructionAt(8, 0, {});
  EXPECT_TRUE(composition->isEmpty());
  composition->addInstructions({first, again, nullptr, other, first});
  composition->addTracks({trackAt(1, 0, 1)}, 7);
  composition->addTracks({trackAt(1, 0, 2), trackAt(2, 0, 2)}, 8);
  composition->addTracks({trackAt(3, 0, 1)}, 99);
  EXPECT_EQ(CMTimeCompare(composition->duration(), seconds(2)), 0) << "that of the longest instruction";
  EXPECT_FALSE(composition->isEmpty());
  EXPECT_THAT(idsOf(composition->allTracks()), ElementsAre(1, 1, 2, 1));
  EXPECT_EQ(composition->getInstruction(7), first);
  EXPECT_EQ(composition->getInstructionForTrackAtId(1), first);
  EXPECT_EQ(composition->getInstructionForTrackAtId(2), other);
  EXPECT_EQ(composition->getInstructionForTrackAtId(3), nullptr);
  EXPECT_EQ(composition->getTrack(1, 99), nullptr);
  EXPECT_EQ(composition->removeTrack(1, 99), nullptr);
  EXPECT_EQ(composition->removeInstruction(99), nullptr);
  EXPECT_EQ(composition->removeTrack(2, 8)->objectId(), 2u);
  EXPECT_EQ(composition->removeInstruction(7), first);
  EXPECT_THAT(composition->getCompositionInstructions(), ElementsAre(again, other));
}

TEST(Composition, findsTheTracksOfATimeWithinTheirInstructions) {
  const auto composition = LUMComposition::initWithSize({2, 2}, 30);
  const auto shared = trackAt(3, 0, 2);
  composition->addInstructions({instructionAt(1, 0, {trackAt(1, 0, 1), shared}), instructionAt(2, 2, {shared, trackAt(4, 0, 5)})});
  struct {
    CMTime time;
    std::vector<uint64_t> instructions, instructionsByFrames, tracks;
  } const table[] = {
      {seconds(0.5), {1}, {1}, {1, 3}},
      {seconds(1.5), {1}, {1}, {3}},
      {seconds(2), {1, 2}, {1, 2}, {3, 3, 4}},
      {CMTimeMake(2010, 1000), {2}, {1, 2}, {3, 3, 4}},
      {seconds(2.5), {2}, {2}, {3, 4}},
      {seconds(7), {2}, {2}, {4}},
      {seconds(8), {}, {}, {}},
  };
  for (const auto& row : table) {
    EXPECT_EQ(idsOf(composition->INSTRUCTIONS_AT_TIME(row.time)), row.instructions) << row.time;
    EXPECT_EQ(idsOf(composition->INSTRUCTIONS_AT_TIME(row.time, 30)), row.instructionsByFrames) << row.time;
    EXPECT_EQ(idsOf(composition->tracksForTime(row.time)), row.tracks) << row.time;
  }
  const CMTime late = CMTimeMake(2020, 1000);
  EXPECT_THAT(idsOf(composition->getInstruction(1)->tracksForTime(late, 30)), ElementsAre(3));
  EXPECT_THAT(idsOf(composition->getInstruction(1)->tracksForTime(late)), ElementsAre());
}

TEST(Composition, theSummaryCountsClassesAndKeysItsNumbers) {
  const auto printed = [](const LUMComposition& composition) {
    std::map<std::string, std::string> text;
    for (const auto& [key, value] : composition.mapRepresentation()) {
      const auto* word = std::any_cast<std::string>(&value);
      text[key] = word != nullptr ? *word : std::to_string(std::any_cast<int64_t>(value));
    }
    return text;
  };
  using Entries = std::map<std::string, std::string>;
  const auto composition = LUMComposition::initWithSize({1080, 720.5}, 25);
  composition->addInstructions({instructionAt(1, 0, {LUMAVAssetTrack::initWithAVAsset(nullptr, 1)})});
  EXPECT_EQ(printed(*composition)["0"], "DURATION") << "an invalid duration";
  composition->removeTrack(1, 1);
  EXPECT_EQ(printed(*composition), (Entries{{"25", "FPS"}, {"{1080, 720.5}", "SIZE"}, {"0", "DURATION"}}));
  const auto file = assetOf({videoOf(25.9)});
  composition->addTracks({LUMAVAssetTrack::initWithAVAsset(file, 1), trackAt(3, 0, 1), LUMAVAssetTrack::initWithAVAsset(file, 4)},
                         1);
  EXPECT_EQ(printed(*composition),
            (Entries{{"25", "DURATION"}, {"{1080, 720.5}", "SIZE"}, {"LUMAVAssetTrack", "2"}, {"LUMTrack", "1"}}))
      << "25.9 s at 25 frames a second";
}

}  // namespace
}  // namespace vidloom
