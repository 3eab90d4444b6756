#include "hostkit/ProjectTimeline.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "hostkit/ProjectMediaTrack.h"
#include "hostkit/TimeText.h"
#include "hostkit/TrackCrop.h"
#include "tests/support/Fixtures.h"
#include "tests/support/ImageFiles.h"
#include "vidloom/platform/avfoundation/AVAsset.h"
#include "vidloom/timeline/LUMComposition.h"
#include "vidloom/timeline/LUMCropData.h"
#include "vidloom/timeline/LUMInstruction.h"

namespace vidloom {
namespace {

using testing::ClipSpec;

std::string textOf(const CMTimeRange& range) { return exactTextFromTime(range.start) + " +" + exactTextFromTime(range.duration); }

/// Two seconds of picture with that many frames of sound at 48 kHz; 0: none.
std::filesystem::path clipWithSound(int64_t soundFrames) {
  ClipSpec spec;
  spec.frameCount = 60;
  if (soundFrames > 0) spec.sound = testing::sine(440, soundFrames, 48000);
  return makeClip(spec);
}

ProjectTrack trackOf(uint64_t id, const std::filesystem::path& path) {
  ProjectTrack track;
  track.id = id;
  track.source = path.filename().string();
  track.path = path;
  track.pointer = "/t/" + std::to_string(id);
  return track;
}

ProjectFile projectOf(const std::vector<ProjectTrack>& tracks, const CMTime& start = kCMTimeZero) {
  ProjectFile project;
  project.file = "p.json";
  project.renderSize = CGSizeMake(640, 640);
  project.fps = 30;
  project.instructions = {{1, start, tracks}};
  return project;
}

TEST(ProjectTimeline, MakesTheTracksOfAProjectAndOpensEachFileOnce) {
  ProjectTrack first = trackOf(10, clipWithSound(96000));
  first.start = CMTimeMake(1, 2);
  first.leftTrim = CMTimeMake(1, 3);
  first.rightTrim = CMTimeMake(2, 3);
  first.mute = true;
  ProjectTrack second = trackOf(11, first.path);
  second.transform = CGAffineTransformMake(2, 0, 0, 2, 7, 8);
  ProjectProblems problems;
  const auto timeline = timelineOfProject(projectOf({first, second}, CMTimeMake(3, 1)), {}, problems);
  ASSERT_NE(timeline, nullptr);
  EXPECT_EQ(exactTextFromTime(timeline->getInstruction(1)->start()), "0");
  EXPECT_EQ(exactTextFromTime(timeline->duration()), "5");
  const auto a = std::dynamic_pointer_cast<LUMAVAssetTrack>(timeline->getTrack(10, 1));
  const auto b = std::dynamic_pointer_cast<LUMAVAssetTrack>(timeline->getTrack(11, 1));
  EXPECT_EQ(a->asset(), b->asset());
  EXPECT_EQ(textOf(a->trackGlobalTimeRange()), "7/2 +1");
  EXPECT_EQ(textOf(a->trackInnerTimeRange()), "1/3 +1");
  EXPECT_TRUE(a->muteAudioFlag());
  EXPECT_EQ(a->transform(), CGAffineTransformMake(2, 0, 0, 2, 0, 140)) << "contained in the square";
  EXPECT_EQ(b->transform(), *second.transform);
}

TEST(ProjectTimeline, PlacesWhatACropLeavesOfTheUprightPicture) {
  const auto turned = std::filesystem::path(VIDLOOM_TEST_DATA) / "media/h264_rotation_90cw_phone_568x320.mov";  // as stored
  ProjectTrack fitted = trackOf(1, turned), placed = trackOf(2, turned);
  fitted.crop = ProjectCrop{true, CGRectMake(0, 0.5, 1, 0.25)};  // 320 x 142
  placed.crop = ProjectCrop{false, CGRectMake(10, 20, 30, 40)};
  placed.transform = CGAffineTransformMake(0, 1, -1, 0, 320, 0);
  ProjectProblems problems;
  const auto timeline = timelineOfProject(projectOf({fitted, placed}), {}, problems);
  ASSERT_NE(timeline, nullptr) << problems.front().text();
  const auto placement = [&](uint64_t id) {
    const auto track = timeline->getTrack(id, 1);
    return partOfPicture(track->cropData().get(), track->aspectSize(), track->preferredTransform(), track->transform());
  };
  EXPECT_EQ(placement(1).part, CGRectMake(284, 0, 142, 320));
  EXPECT_EQ(placement(1).transform, CGAffineTransformMake(0, 2, -2, 0, 640, 320 - 142));
  EXPECT_EQ(placement(2).part, CGRectMake(20, 280, 40, 30));
  EXPECT_EQ(placement(2).transform, CGAffineTransformMake(0, 1, -1, 0, 30, 0));

  fitted.crop = ProjectCrop{false, CGRectMake(0, 0, 321, 10)};
  EXPECT_EQ(timelineOfProject(projectOf({fitted}), {}, problems), nullptr);
  EXPECT_THAT(problems.at(0).text(), ::testing::EndsWith("the crop reaches beyond the picture, whose size is {320, 568}"));
}

TEST(ProjectTimeline, MakesStillsOfImagesAndTexts) {
  const auto white = [](int, int) { return testing::Rgba{255, 255, 255, 255}; };
  ProjectTrack image = trackOf(1, testing::makeImage("still.png", 80, 40, testing::rgbaBytes(80, 40, white), {}));
  image.type = ProjectTrackType::image;
  image.start = CMTimeMake(1, 2);
  image.duration = CMTimeMake(3, 1);
  ProjectTrack text = trackOf(2, {});
  text.type = ProjectTrackType::text;
  text.text = "Title";
  text.position = CGPointMake(30, 40);
  text.duration = CMTimeMake(1, 1);
  ProjectProblems problems;
  const auto timeline = timelineOfProject(projectOf({image, text}, CMTimeMake(2, 1)), {}, problems);
  ASSERT_NE(timeline, nullptr) << problems.front().text();
  const auto still = timeline->getTrack(1, 1), title = timeline->getTrack(2, 1);
  EXPECT_EQ(textOf(still->trackGlobalTimeRange()), "5/2 +3");
  EXPECT_EQ(still->transform(), CGAffineTransformMake(8, 0, 0, 8, 0, 160));
  EXPECT_NE(still->staticSourceCGImageRef(), nullptr);
  EXPECT_EQ(textOf(title->trackGlobalTimeRange()), "2 +1");
  EXPECT_NEAR(title->transform().tx, 30, 8);
  EXPECT_NE(title->staticSourceCGImageRef(), nullptr);

  image.path = clipWithSound(0);
  text.font = "Sans 1000000";
  EXPECT_EQ(timelineOfProject(projectOf({image, text}), {}, problems), nullptr);
  ASSERT_EQ(problems.size(), 2U);
  EXPECT_THAT(problems[0].text(), ::testing::StartsWith("p.json:/t/1: still.png: "));
  EXPECT_EQ(problems[1].text(), "p.json:/t/2: the font size of \"Sans 1000000\" is too large");
}

TEST(ProjectTimeline, RefusesSpeedsThatLeaveNoLength) {
  const auto path = clipWithSound(0);
  // From the middle of the box, 1, to below its largest y, where the speed reaches zero and goes on falling.
  const auto falling = [](double lowest) { return ProjectSpeedCurve{CGRectMake(0, 0, 100, 100), {}, {{0, 50}, {1, lowest}}, {}}; };
  const std::pair<ProjectSpeed, std::string> rows[] = {
      {0.0, "track 7: the speed is zero or no number at 0 s of its content"},
      {-2.0, "track 7: the speed is negative at 0 s of its content"},
      {1e300, "track 7: its speed is so high that nothing is left of its length"},
      {falling(112.5), ""},  // zero only at the very end, where no segment begins
      {falling(150), "track 7: the speed is negative at 1.3 s of its content"},
      {ProjectSpeedCurve{CGRectMake(0, 0, 1, 1), {CMTimeMake(1, 1), CMTimeMake(1, 1)}, {{0, 0}, {1, 0}}, {}},
       "track 7: the offsets of its speed leave nothing of its content"},
  };
  for (const auto& [speed, problem] : rows) {
    ProjectTrack track = trackOf(7, path);
    track.speed = speed;
    ProjectProblems problems;
    const auto timeline = timelineOfProject(projectOf({track}), {}, problems);
    EXPECT_EQ(timeline != nullptr, problem.empty()) << problem;
    ASSERT_EQ(problems.size(), problem.empty() ? 0U : 1U) << problem;
    for (const ProjectProblem& noted : problems) EXPECT_EQ(noted.text(), "p.json:/t/7: " + track.source + ": " + problem);
  }
}

TEST(ProjectTimeline, StopsBetweenFilesWhenItIsCancelled) {
  int asked = 0;
  ProjectProblems problems;
  const ProjectFile project = projectOf({trackOf(1, clipWithSound(0)), trackOf(2, "never opened"), trackOf(3, "nor this")});
  EXPECT_EQ(timelineOfProject(
                project, [&asked] { return ++asked > 1; }, problems),
            nullptr);
  EXPECT_EQ(asked, 2);
  EXPECT_TRUE(problems.empty());
}

TEST(ProjectMediaTrack, PlaysTheSoundThatBelongsToTheShownPart) {
  struct Row {
    int64_t soundFrames;
    CMTime leftTrim, rightTrim;
    std::string sound;
  };
  constexpr CMTime kHalf{1, 2, kCMTimeFlags_Valid, 0};
  constexpr CMTime kLate{3, 2, kCMTimeFlags_Valid, 0};
  const Row rows[] = {
      {96000, kHalf, kHalf, "1/2 +1"},        {96000, kLate, kCMTimeZero, "3/2 +1/2"},  // more is cut off than is left
      {120000, kCMTimeZero, kHalf, "0 +3/2"},                                           // sound longer than the picture
      {48000, kCMTimeZero, kHalf, "0 +1"},                                              // sound shorter than what is shown
      {48000, kLate, kCMTimeZero, "3/2 +0"},                                            // the sound has ended before
  };
  for (const Row& row : rows) {
    const auto asset = AVAsset::assetWithURL(clipWithSound(row.soundFrames));
    const auto track = ProjectMediaTrack::initWithAVAsset(asset, 1);
    track->setLeftTrimOffset(row.leftTrim);
    track->setRightTrimOffset(row.rightTrim);
    track->setStart(CMTimeMake(5, 1));
    EXPECT_EQ(textOf(track->audioTrackInnerTimeRange()), row.sound);
    EXPECT_EQ(exactTextFromTime(track->audioTrackGlobalTimeRange().start), "5");
    const auto copy = track->copyWithId(2);
    EXPECT_EQ(textOf(copy->audioTrackInnerTimeRange()), row.sound);
  }
}

}  // namespace
}  // namespace vidloom
