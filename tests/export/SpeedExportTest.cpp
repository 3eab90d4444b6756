// Speeds through the whole exporter: which frames are shown, what is heard, and which speeds are refused.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>

#include "tests/export/ExportHost.h"
#include "vidloom/compositing/LUMAVComposition.h"
#include "vidloom/platform/avfoundation/AVCompositionTrack.h"
#include "vidloom/speed/LUMScaleContext.h"
#include "vidloom/speed/LUMScalePoint.h"
#include "vidloom/speed/PWBezier.h"

namespace vidloom {
namespace {

using ::testing::HasSubstr;
using Context = std::shared_ptr<LUMScaleContext>;

constexpr int kSampleRate = 48000;

/// From speed to speed along straight lines, at even distances; heights in a box from 0 to 100.
Context ramp(const std::vector<double>& speeds, const LUMScaleContext::Offsets& offsets = {}) {
  std::vector<std::shared_ptr<LUMScalePoint>> points;
  std::vector<std::shared_ptr<PWBezier>> curves;
  for (size_t i = 0; i < speeds.size(); ++i) {
    const double speed = speeds[i], x = static_cast<double>(i) / static_cast<double>(speeds.size() - 1);
    const double y = speed <= 1 ? 50 + (1 - speed) / 0.8 * 50 : 50 - (speed - 1) / 9 * 50;
    points.push_back(LUMScalePoint::initWithX(static_cast<float>(x), 0, {100 * x, y}));
    if (i > 0) curves.push_back(PWBezier::initWithStartPoint(points[i - 1]->center(), points[i]->center()));
  }
  return LUMScaleContext::initWithBox(CGRectMake(0, 0, 100, 100), points, curves, offsets);
}

std::shared_ptr<LUMComposition> scaledTimeline(const std::filesystem::path& path, const Context& context,
                                               const CMTime& leftTrim = kCMTimeZero) {
  const auto timeline = timelineOf({AVAsset::assetWithURL(path)});
  const auto track = timeline->allTracks().front();
  track->setLeftTrimOffset(leftTrim);
  track->setScaleContext(context);
  timeline->invalidate();
  return timeline;
}

/// The frame of a 30 fps source that a composition's segments show at each output frame before `end`.
std::vector<int> framesBySegments(const std::shared_ptr<LUMComposition>& timeline, const CMTime& end) {
  const auto data = LUMAVComposition::buildNativeCompositionData(timeline);
  const auto track = data->composition()->tracksWithMediaType(AVMediaTypeVideo).front();
  const auto segments = std::dynamic_pointer_cast<AVCompositionTrack>(track)->segments();
  std::vector<int> frames;
  for (int n = 0; CMTimeCompare(CMTimeMake(n, 30), end) < 0; ++n) {
    for (const auto& segment : segments) {
      const auto& [source, target] = segment.timeMapping;
      if (!CMTimeRangeContainsTime(target, CMTimeMake(n, 30))) continue;
      const CMTime at = CMTimeMapTimeFromRangeToRange(CMTimeMake(n, 30), target, source);
      frames.push_back(static_cast<int>(std::floor(CMTimeGetSeconds(at) * 30 + 1e-6)));
    }
  }
  return frames;
}

TEST(SpeedExport, ShowsTheFramesThatTheSegmentsSay) {
  const auto path = testing::makeClip({.frameCount = 120, .gop = 24, .bFrames = 2});
  const struct {
    const char* what;
    Context context;
    CMTime leftTrim;
  } rows[] = {
      {"slower", LUMScaleContext::initWithLinearSpeed(0.97), kCMTimeZero},
      {"faster", LUMScaleContext::initWithLinearSpeed(1.5), CMTimeMake(1, 7)},
      {"up and down", ramp({1, 4, 0.5}), CMTimeMake(1, 3)},
      {"with a head and a tail", ramp({1, 3}, {CMTimeMake(1, 2), CMTimeMake(2, 5)}), kCMTimeZero},
      {"beyond the box", ramp({0.18, 10.5}), CMTimeMake(2, 1)},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.what);
    const auto timeline = scaledTimeline(path, row.context, row.leftTrim);
    Export movie(timeline);
    movie.run();
    const auto frames = testing::decodedFrameIndices(movie.movie());
    EXPECT_EQ(frames, framesBySegments(timeline, timeline->duration()));
    EXPECT_GT(frames.size(), 10u);
  }
}

/// The frequency of a tone by its crossings of zero.
double pitchOf(const testing::SoundSamples& sound, double fromSeconds, double toSeconds) {
  const auto first = static_cast<size_t>(fromSeconds * kSampleRate), last = static_cast<size_t>(toSeconds * kSampleRate);
  double begin = -1, end = -1;
  int count = -1;
  for (size_t i = first; i < last; ++i) {
    const double before = sound[2 * i], after = sound[2 * i + 2];
    if (before >= 0 || after < 0) continue;
    end = static_cast<double>(i) + before / (before - after);
    if (begin < 0) begin = end;
    ++count;
  }
  return count > 0 ? count * kSampleRate / (end - begin) : 0;
}

TEST(SpeedExport, ThePitchFollowsTheSpeedAndTheSoundEndsWithThePicture) {
  const auto path = testing::makeClip({.frameCount = 120, .sound = testing::sine(440, 4 * kSampleRate, kSampleRate)});
  const struct {
    Context context;
    double fromSeconds, toSeconds, lowest, highest;
  } rows[] = {{LUMScaleContext::initWithLinearSpeed(2), 0.2, 1.8, 879, 881},
              {LUMScaleContext::initWithLinearSpeed(0.5), 0.5, 7.5, 219.8, 220.2},
              // The head at its own speed, then twice that.
              {ramp({2, 2}, {CMTimeMake(1, 2), CMTimeMake(1, 4)}), 0.05, 0.45, 439, 441},
              {ramp({2, 2}, {CMTimeMake(1, 2), CMTimeMake(1, 4)}), 0.55, 1.6, 879, 881}};
  for (const auto& row : rows) {
    const auto timeline = scaledTimeline(path, row.context);
    Export movie(timeline);
    movie.run();
    const auto sound = testing::decodedSound(movie.movie(), kSampleRate);
    const double pitch = pitchOf(sound, row.fromSeconds, std::min(row.toSeconds, CMTimeGetSeconds(timeline->duration()) - 0.05));
    EXPECT_GE(pitch, row.lowest);
    EXPECT_LE(pitch, row.highest);
    // A whole AAC packet more at most, at 44.1 kHz.
    EXPECT_NEAR(static_cast<double>(sound.size()) / 2 / kSampleRate, CMTimeGetSeconds(timeline->duration()),
                1024 / 44100.0 + 0.001);
  }
}

TEST(SpeedExport, RefusesSpeedsThatLeaveNoLengthAndNamesTheTrack) {
  for (const double speed : {0.0, -1.0, HUGE_VAL}) {
    Export movie(scaledTimeline(testing::makeClip({}), LUMScaleContext::initWithLinearSpeed(speed)));
    movie.render->setUseNativeComposition(speed < 0);
    movie.render->generate();
    ASSERT_TRUE(movie.render->setUpError()) << speed;
    EXPECT_THAT(movie.render->setUpError()->localizedDescription(), HasSubstr("LUMRender cannot export track 10: ")) << speed;
    movie.render->clean();
    EXPECT_TRUE(movie.files().empty());
  }
}

}  // namespace
}  // namespace vidloom
