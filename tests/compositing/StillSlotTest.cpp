#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/compositing/Timelines.h"
#include "tests/support/Fixtures.h"
#include "vidloom/platform/avfoundation/AVURLAsset.h"
#include "vidloom/platform/ffmpeg/MediaFile.h"
#include "vidloom/platform/foundation/NSLog.h"
#include "vidloom/speed/LUMScaleContext.h"
#include "vidloom/timeline/LUMAVAssetTrack.h"
#include "vidloom/timeline/LUMCVPixelBufferTrack.h"
#include "vidloom/timeline/LUMGlobal.h"

namespace vidloom {
namespace {

using ::testing::ElementsAre;
using testing::LogCapture;

std::shared_ptr<LUMTrack> stillAt(uint64_t id, const CMTime& start, const CMTime& duration) {
  return LUMCVPixelBufferTrack::initWithCVPixelBuffer(nullptr, id, {start, duration});
}
std::shared_ptr<LUMTrack> stillAt(uint64_t id, int startSeconds, int durationSeconds) {
  return stillAt(id, CMTimeMake(startSeconds, 1), CMTimeMake(durationSeconds, 1));
}

std::shared_ptr<LUMTrack> mediaAt(uint64_t id, int startSeconds, int durationSeconds, double speed = 1) {
  testing::ClipSpec spec;
  spec.frameCount = durationSeconds * 30;
  auto track = LUMAVAssetTrack::initWithAVAsset(AVAsset::assetWithURL(testing::makeClip(spec)), id);
  track->setStart(CMTimeMake(startSeconds, 1));
  if (speed != 1) track->setScaleContext(LUMScaleContext::initWithLinearSpeed(speed));
  return track;
}

std::string text(const CMTime& time) { return NSStringWithFormat("%.4g", CMTimeGetSeconds(time)); }

/// "empty 0-3", or the file, what of it is played, and where.
std::string text(const MediaSegment& segment) {
  const std::string where = text(segment.target.start) + "-" + text(CMTimeRangeGetEnd(segment.target));
  if (segment.isEmpty()) return "empty " + where;
  const std::string file = segment.file->path().filename().string();
  const bool isBlank = file.rfind("empty_", 0) == 0;
  return (isBlank ? file : "media") + " " + text(segment.media.start) + "-" + text(CMTimeRangeGetEnd(segment.media)) + " at " +
         where;
}

using Layout = std::vector<std::vector<std::string>>;
Layout layoutOf(const AVMutableComposition& composition) {
  Layout layout;
  for (const auto& track : composition.tracks()) {
    layout.emplace_back();
    for (const MediaSegment& segment : track->mediaSegments()) layout.back().push_back(text(segment));
  }
  return layout;
}

TEST(StillSlots, EndWithOneBlankClipAndBeginEmptyWhereTheyAreLonger) {
  const struct {
    const char* what;
    Tracks tracks;
    Layout layout;
  } rows[] = {
      {"as long as the clip", {stillAt(1, 0, 2)}, {{"empty_30_fps.mp4 0-2 at 0-2"}}},
      {"of no length", {stillAt(1, 3, 0)}, {{}}},
      {"shorter, later", {stillAt(1, 4, 1)}, {{"empty 0-4", "empty_30_fps.mp4 0-1 at 4-5"}}},
      {"of awkward times",
       {stillAt(1, CMTimeMake(1001, 30000), CMTimeMake(7, 3))},
       {{"empty 0-0.3667", "empty_30_fps.mp4 0-2 at 0.3667-2.367"}}},
      {"apart on one track, the first keeping its empty range",
       {stillAt(1, 0, 1), stillAt(2, 2, 1), stillAt(3, 4, 3)},
       {{"empty 0-5", "empty_30_fps.mp4 0-2 at 5-7"}}},
      {"touching, on tracks of their own",
       {stillAt(1, 0, 1), stillAt(2, 1, 1)},
       {{"empty_30_fps.mp4 0-1 at 0-1"}, {"empty 0-1", "empty_30_fps.mp4 0-1 at 1-2"}}},
      {"behind media", {mediaAt(1, 0, 2), stillAt(2, 3, 3)}, {{"media 0-2 at 0-2", "empty 2-4", "empty_30_fps.mp4 0-2 at 4-6"}}},
      {"before media, which then ends the track", {stillAt(1, 0, 1), mediaAt(2, 3, 1)}, {{"empty 0-3", "media 0-1 at 3-4"}}},
      {"reached by media that plays slowly, whose rest moves on",
       {mediaAt(1, 0, 2, 0.5), stillAt(2, 3, 3)},
       {{"media 0-1.5 at 0-3", "empty 3-4", "empty_30_fps.mp4 0-2 at 4-6", "media 1.5-2 at 6-7"}}},
  };
  for (const auto& row : rows) {
    const auto data = LUMAVComposition::buildCompositionData(timelineOf({row.tracks}));
    EXPECT_EQ(layoutOf(*data->composition()), row.layout) << row.what;
  }
}

TEST(StillSlots, TakeTheClipOfTheTimelinesRate) {
  for (const uint64_t fps : {15, 25, 30, 60}) {
    const auto data = LUMAVComposition::buildNativeCompositionData(timelineOf({{stillAt(1, 0, 1)}}, fps));
    EXPECT_EQ(layoutOf(*data->composition()), (Layout{{"empty_" + std::to_string(fps) + "_fps.mp4 0-1 at 0-1"}}));
    EXPECT_EQ(LUMGlobal::LUMEmptyFootageForFPS(fps)->tracks().at(0)->nominalFrameRate(), static_cast<float>(fps));
  }
}

TEST(StillSlots, StayEmptyWhereThereIsNoFootageForTheRateAndEachIsReported) {
  const auto timeline = timelineOf({{stillAt(1, 0, 2), stillAt(2, 0, 2)}}, 24);
  LogCapture log;
  const auto data = LUMAVComposition::buildCompositionData(timeline);
  const std::string missing = "[LUMLog] Empty footage is NULL from call method LUMAVCompositionInstruction.finish()";
  const std::string unsupported = "[LUMLog] This fps - 24 not supported";
  EXPECT_THAT(log.lines(), ElementsAre(unsupported, missing, unsupported, missing));
  EXPECT_EQ(CMTimeCompare(data->composition()->duration(), kCMTimeZero), 0);
}

}  // namespace
}  // namespace vidloom
