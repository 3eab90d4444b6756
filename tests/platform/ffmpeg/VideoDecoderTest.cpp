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

struct SeenFrame {
  CMTime time;
  int index;
};

/// Every frame in order, as a decoder gives them that never jumps.
std::vector<SeenFrame> allFrames(const testing::OpenedMedia& clip) {
  auto decoder = decoderFor(clip);
  std::vector<SeenFrame> frames;
  CMTime next = kCMTimeZero;
  while (CMTIME_IS_NUMERIC(next)) {
    const auto frame = decoder->frameAt(next, nullptr);
    if (!frame) break;
    frames.push_back({frame->mediaTime, readFrameIndex(*frame->picture)});
    next = decoder->nextFrameTime();
  }
  return frames;
}

struct Case {
  const char* name;
  ClipSpec spec;
};

ClipSpec x264(const char* rate, int gop, int bFrames, bool openGop, const char* container = "mp4",
              const std::vector<std::string>& options = {}) {
  return {.frameCount = 40,
          .frameRate = rate,
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
  return {
      {"all in one group", x264("25", 250, 3, false)},
      {"closed groups", x264("30000/1001", 12, 2, false)},
      {"open groups", x264("30", 10, 3, true)},
      {"open groups with pyramid",
       x264("60", 12, 7, true, "mp4", {"-x264-params", "open-gop=1:b-pyramid=normal:scenecut=0:b-adapt=0"})},
      {"intra refresh", x264("30", 10, 0, false, "mp4", {"-x264-params", "intra-refresh=1:scenecut=0"})},
      {"intra only", x264("24", 1, 0, false)},
      {"fragments", x264("30", 10, 2, true, "mp4", {"-movflags", "frag_keyframe+empty_moov"})},
      {"fragments with negative offsets", x264("30", 10, 2, false, "mp4", {"-movflags", "frag_keyframe+negative_cts_offsets"})},
      {"negative offsets", x264("30", 10, 2, true, "mov", {"-movflags", "negative_cts_offsets"})},
      {"matroska, open groups", x264("30", 10, 3, true, "mkv")},
      {"transport stream, open groups", x264("25", 10, 3, true, "ts", {"-muxdelay", "0.7"})},
      {"slices in threads", x264("30", 20, 3, true, "mp4", {"-slices", "4"})},
      {"HEVC with leading pictures", other("libx265", "mp4", x265)},
      {"VP9",
       other("libvpx-vp9", "webm", {"-deadline", "realtime", "-cpu-used", "8", "-auto-alt-ref", "1", "-lag-in-frames", "16"})},
      {"VP8", other("libvpx", "webm", {"-deadline", "realtime", "-cpu-used", "8", "-b:v", "2M"})},
      {"AV1", other("libaom-av1", "mp4", {"-cpu-used", "8", "-usage", "realtime", "-crf", "30"})},
      {"MPEG-4 in AVI", other("mpeg4", "avi", {"-q:v", "4", "-bf", "0"})},
      {"MPEG-4 with B frames", other("mpeg4", "mp4", {"-q:v", "4", "-bf", "2"})},
      {"MPEG-2 in a transport stream", other("mpeg2video", "ts", {"-q:v", "4", "-bf", "2"})},
      {"Motion JPEG", other("mjpeg", "mov", {"-q:v", "4"})},
      {"ProRes", other("prores_ks", "mov", {"-pix_fmt", "yuv422p10le"})},
      {"Theora", other("libtheora", "ogg", {"-q:v", "8"})},
  };
}

class EveryCodec : public ::testing::TestWithParam<Case> {};

TEST_P(EveryCodec, ShowsTheSameFrameHoweverItIsReached) {
  const auto clip = testing::openMedia(makeClip(GetParam().spec), MediaKind::video);
  const std::vector<SeenFrame> frames = allFrames(clip);
  ASSERT_EQ(frames.size(), static_cast<size_t>(GetParam().spec.frameCount));
  const CMTime tick = CMTimeMake(1, 90000);
  for (size_t i = 0; i < frames.size(); ++i) {
    ASSERT_EQ(frames[i].index, static_cast<int>(i)) << "in order";
    EXPECT_EQ(indexAt(*decoderFor(clip), frames[i].time), static_cast<int>(i)) << "opened at frame " << i;
  }
  auto decoder = decoderFor(clip);
  std::mt19937 random(7);
  for (int step = 0; step < 60; ++step) {
    const size_t i = random() % frames.size();
    const bool justBefore = i > 0 && random() % 2 == 0;
    const CMTime time = justBefore ? CMTimeSubtract(frames[i].time, tick) : frames[i].time;
    EXPECT_EQ(indexAt(*decoder, time), static_cast<int>(i) - (justBefore ? 1 : 0)) << "jump " << step << " to frame " << i;
  }
  EXPECT_EQ(indexAt(*decoder, CMTimeMake(1000, 1)), static_cast<int>(frames.size()) - 1) << "after the end";
  EXPECT_EQ(indexAt(*decoder, CMTimeMake(-1, 1)), 0) << "before the beginning";
}

INSTANTIATE_TEST_SUITE_P(VideoDecoder, EveryCodec, ::testing::ValuesIn(cases()), [](const auto& parameter) {
  std::string name = parameter.param.name;
  std::erase_if(name, [](char c) { return std::isalnum(static_cast<unsigned char>(c)) == 0; });
  return name;
});

}  // namespace
}  // namespace vidloom
