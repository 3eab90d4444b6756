#include "vidloom/platform/ffmpeg/VideoDecoder.h"

#include <gtest/gtest.h>

#include <random>

#include "tests/platform/ffmpeg/MediaTesting.h"

namespace vidloom {
namespace {

using testing::ClipSpec;
using testing::makeClip;
using testing::readFrameIndex;

std::unique_ptr<VideoDecoder> decoderFor(const testing::OpenedMedia& clip) {
  return testing::decoderFor<VideoDecoder>(clip, VideoDecoder::Options{});
}

int indexAt(VideoDecoder& decoder, const CMTime& time) {
  const auto frame = decoder.frameAt(time, nullptr);
  return frame ? readFrameIndex(*frame->picture) : -2;
}

/// The times of all frames in order, as a decoder gives them that never jumps.
std::vector<CMTime> allTimes(const testing::OpenedMedia& clip) {
  const auto decoder = decoderFor(clip);
  std::vector<CMTime> times;
  for (CMTime next = kCMTimeZero; CMTIME_IS_NUMERIC(next); next = decoder->nextFrameTime()) {
    const auto frame = decoder->frameAt(next, nullptr);
    if (!frame) break;
    EXPECT_EQ(readFrameIndex(*frame->picture), static_cast<int>(times.size())) << "in order";
    times.push_back(frame->mediaTime);
  }
  return times;
}

struct Case {
  const char* name;
  ClipSpec spec;
};

ClipSpec x264(int gop, int bFrames, bool openGop, const char* container = "mp4", const std::vector<std::string>& options = {}) {
  return {.frameCount = 40,
          .frameRate = "30000/1001",
          .gop = gop,
          .bFrames = bFrames,
          .openGop = openGop,
          .videoOptions = options,
          .container = container};
}

ClipSpec other(const char* codec, const char* container, const std::vector<std::string>& options) {
  return {.frameCount = 40, .videoCodec = codec, .gop = 10, .videoOptions = options, .container = container};
}

std::vector<Case> cases() {
  const std::vector<std::string> x265{"-preset", "ultrafast", "-x265-params", "log-level=none:open-gop=1:bframes=3:keyint=10"};
  const std::vector<std::string> pyramid{"-x264-params", "open-gop=1:b-pyramid=normal:scenecut=0:b-adapt=0"};
  return {
      {"closed groups", x264(12, 2, false)},
      {"open groups with pyramid", x264(12, 7, true, "mp4", pyramid)},
      {"intra refresh", x264(10, 0, false, "mp4", {"-x264-params", "intra-refresh=1:scenecut=0"})},
      {"fragments", x264(10, 2, true, "mp4", {"-movflags", "frag_keyframe+empty_moov"})},
      {"fragments with negative offsets", x264(10, 2, false, "mp4", {"-movflags", "frag_keyframe+negative_cts_offsets"})},
      {"negative offsets", x264(10, 2, true, "mov", {"-movflags", "negative_cts_offsets"})},
      {"matroska, open groups", x264(10, 3, true, "mkv")},
      {"transport stream, open groups", x264(10, 3, true, "ts", {"-muxdelay", "0.7"})},
      {"slices in threads", x264(20, 3, true, "mp4", {"-slices", "4"})},
      {"HEVC with leading pictures", other("libx265", "mp4", x265)},
      {"VP9",
       other("libvpx-vp9", "webm", {"-deadline", "realtime", "-cpu-used", "8", "-auto-alt-ref", "1", "-lag-in-frames", "16"})},
      {"AV1", other("libaom-av1", "mp4", {"-cpu-used", "8", "-usage", "realtime", "-crf", "30"})},
      {"MPEG-4 in AVI", other("mpeg4", "avi", {"-q:v", "4", "-bf", "0"})},
      {"MPEG-2 in a transport stream", other("mpeg2video", "ts", {"-q:v", "4", "-bf", "2"})},
      {"ProRes", other("prores_ks", "mov", {"-pix_fmt", "yuv422p10le"})},
      {"Theora", other("libtheora", "ogg", {"-q:v", "8"})},
  };
}

class EveryCodec : public ::testing::TestWithParam<Case> {};

TEST_P(EveryCodec, ShowsTheSameFrameHoweverItIsReached) {
  const auto clip = testing::openMedia(makeClip(GetParam().spec), MediaKind::video);
  const std::vector<CMTime> times = allTimes(clip);
  const int count = GetParam().spec.frameCount;
  ASSERT_EQ(times.size(), static_cast<size_t>(count));
  for (int i = 0; i < count; ++i) EXPECT_EQ(indexAt(*decoderFor(clip), times[size_t(i)]), i) << "opened at frame " << i;
  const auto decoder = decoderFor(clip);
  std::mt19937 random(7);
  for (int step = 0; step < 60; ++step) {
    const int i = static_cast<int>(random() % times.size());
    const int ticksBefore = i > 0 && random() % 2 == 0;
    const CMTime time = CMTimeSubtract(times[size_t(i)], CMTimeMake(ticksBefore, 90000));
    EXPECT_EQ(indexAt(*decoder, time), i - ticksBefore) << "jump " << step << " to frame " << i;
  }
  EXPECT_EQ(indexAt(*decoder, CMTimeMake(1000, 1)), count - 1) << "after the end";
  EXPECT_EQ(indexAt(*decoder, CMTimeMake(-1, 1)), 0) << "before the beginning";
}

INSTANTIATE_TEST_SUITE_P(VideoDecoder, EveryCodec, ::testing::ValuesIn(cases()), [](const auto& parameter) {
  std::string name = parameter.param.name;
  std::erase_if(name, [](char c) { return std::isalnum(static_cast<unsigned char>(c)) == 0; });
  return name;
});

}  // namespace
}  // namespace vidloom
