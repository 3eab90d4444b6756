// What decoded pictures look like, whatever form they are stored in.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <sstream>

#include "tests/platform/ffmpeg/MediaTesting.h"
#include "tests/platform/pixels/TestPictures.h"
#include "tests/support/MovieProbe.h"
#include "vidloom/platform/ffmpeg/VideoDecoder.h"

namespace vidloom {
namespace {

using testing::makeClip;
using testing::sample;

struct Decoded : testing::OpenedMedia {
  explicit Decoded(const std::filesystem::path& path)
      : OpenedMedia(testing::openMedia(path, MediaKind::video)),
        decoder(testing::decoderFor<VideoDecoder>(*this, VideoDecoder::Options{})) {}
  PictureRef at(const CMTime& time) const {
    const auto frame = decoder->frameAt(time, nullptr);
    return frame ? frame->picture : nullptr;
  }
  std::unique_ptr<VideoDecoder> decoder;
};

using Rgb = std::array<double, 3>;

/// By the formulas of ITU-R BT.601 and BT.709.
Rgb colorAt(const Picture& picture, int x, int y) {
  const bool is709 = picture.color.matrix == ColorMatrix::bt709, isFull = picture.color.fullRange;
  const double kr = is709 ? 0.2126 : 0.299, kb = is709 ? 0.0722 : 0.114;
  const double luma = (test::sampleOf(picture, 0, x, y) - (isFull ? 0 : 16)) * (isFull ? 1 : 255.0 / 219);
  const double cb = (test::sampleOf(picture, 1, x / 2, y / 2) - 128) * (isFull ? 1 : 255.0 / 224);
  const double cr = (test::sampleOf(picture, 2, x / 2, y / 2) - 128) * (isFull ? 1 : 255.0 / 224);
  const double red = luma + 2 * (1 - kr) * cr, blue = luma + 2 * (1 - kb) * cb;
  return {red, (luma - kr * red - kb * blue) / (1 - kr - kb), blue};
}

/// Makes a file with ffmpeg from a filter graph and options of the output, which are split at spaces.
std::filesystem::path filteredClip(const std::string& name, const std::string& graph, const std::string& options) {
  const std::filesystem::path path = testing::scratchFolder() / name;
  std::vector<std::string> command{"ffmpeg", "-v", "error", "-y", "-f", "lavfi", "-i", graph};
  std::istringstream words(options);
  for (std::string word; words >> word;) command.push_back(word);
  command.push_back(path.string());
  if (testing::runProgram(command) != 0) throw std::runtime_error("cannot make " + name);
  return path;
}

/// Two frames of one colour; the left half is (200, 60, 90), the right half (30, 120, 210).
std::filesystem::path colorClip(const std::string& filters, const std::string& output, const std::string& name) {
  return filteredClip(name,
                      "color=0xC83C5A:s=64x96:r=10:d=0.2[l];color=0x1E78D2:s=64x96:r=10:d=0.2[r];[l]format=gbrp[a];"
                      "[r]format=gbrp[b];[a][b]hstack" +
                          filters,
                      output);
}

TEST(Picture, ShowsTheSameColoursHoweverTheyAreStored) {
  const auto scaled = [](const std::string& matrix, const std::string& range, const std::string& format) {
    return ",scale=out_color_matrix=" + matrix + ":out_range=" + range + ":flags=accurate_rnd+full_chroma_int,format=" + format;
  };
  const std::string x264 = "-c:v libx264 -crf 1 ", full = x264 + "-colorspace bt709 -color_range pc",
                    tag709 = " -colorspace bt709 -color_primaries bt709 -color_trc bt709 -color_range tv";
  const std::tuple<const char*, std::string, std::string> cases[] = {
      {"full-709.mp4", scaled("bt709", "pc", "yuv420p"), full},
      {"limited-601.mp4", scaled("smpte170m", "tv", "yuv420p"), x264 + "-colorspace smpte170m -color_range tv"},
      {"untagged.mkv", scaled("smpte170m", "tv", "yuv420p"), "-c:v ffv1"},
      {"422.mp4", scaled("bt709", "tv", "yuv422p"), x264 + tag709},
      {"444-full.mp4", scaled("bt709", "pc", "yuv444p"), full},
      {"10-bit.mp4", scaled("bt709", "tv", "yuv420p10"), x264 + tag709},
      {"10-bit-422-full.mp4", scaled("bt709", "pc", "yuv422p10"), full},
      {"prores4444.mov", scaled("bt709", "tv", "yuva444p10"), "-c:v prores_ks -profile:v 4444" + tag709},
      {"rgb.mp4", ",format=gbrp", "-c:v libx264rgb -crf 1"},
      {"png.mov", ",format=rgb24", "-c:v png"},
      {"animation.mov", ",format=argb", "-c:v qtrle"},
      {"bgr0.mkv", ",format=bgr0", "-c:v ffv1"},
      {"motion.mov", ",scale=out_color_matrix=bt601:out_range=pc,format=yuvj422p", "-c:v mjpeg -q:v 1"},
      {"wide.mp4",
       ",zscale=matrixin=gbr:rangein=full:transferin=709:primariesin=709:matrix=2020_ncl:primaries=2020:transfer=2020_10:range="
       "limited,format=yuv420p10",
       x264 + "-colorspace bt2020nc -color_primaries bt2020 -color_trc bt2020-10"},
  };
  for (const auto& [name, filters, output] : cases) {
    const PictureRef picture = Decoded(colorClip(filters, output, name)).at(kCMTimeZero);
    ASSERT_TRUE(picture) << name;
    EXPECT_EQ(picture->width, 128) << name;
    const Rgb left = colorAt(*picture, 30, 40), right = colorAt(*picture, 98, 40), stored[] = {{200, 60, 90}, {30, 120, 210}};
    for (size_t i = 0; i < 3; ++i) {
      EXPECT_NEAR(left[i], stored[0][i], 5) << name;
      EXPECT_NEAR(right[i], stored[1][i], 5) << name;
    }
  }
}

TEST(Picture, PassesStoredCodesOnUntouched) {
  const auto clip = makeClip({.frameCount = 3, .width = 166, .height = 122});
  const std::string stored = testing::decodedPlanes(clip);
  const PictureRef picture = Decoded(clip).at(kCMTimeZero);
  ASSERT_TRUE(picture);
  auto next = stored.begin();
  const auto expected = test::makePicture(166, 122, picture->color, false, [&](int, int, int) { return *next++ & 255; });
  EXPECT_EQ(test::largestDifference(*picture, *expected), 0);
}

/// Grey bars of 10-bit codes, tagged as given.
std::filesystem::path barsClip(const std::string& transfer) {
  return filteredClip(transfer + ".mp4", "nullsrc=s=256x64:r=10:d=0.2,format=yuv420p10,geq=lum='64+floor(X/32)*110':cb=512:cr=512",
                      "-c:v libx265 -preset ultrafast -x265-params log-level=none:lossless=1 -colorspace bt2020nc "
                      "-color_primaries bt2020 -color_range tv -color_trc " +
                          transfer);
}

TEST(Picture, MapsHighDynamicRangeToStandard) {
  for (const char* transfer : {"smpte2084", "arib-std-b67"}) {
    SCOPED_TRACE(transfer);
    const Decoded decoded(barsClip(transfer));
    EXPECT_TRUE(decoded.info().highDynamicRange);
    const PictureRef picture = decoded.at(kCMTimeZero);
    ASSERT_TRUE(picture);
    EXPECT_EQ(picture->color, PictureColor{});
    std::vector<int> bars;
    for (int x = 16; x < 256; x += 32) {
      bars.push_back(test::sampleOf(*picture, 0, x, 30));
      for (const int plane : {1, 2}) EXPECT_NEAR(test::sampleOf(*picture, plane, x / 2, 15), 128, 2) << x;
    }
    EXPECT_TRUE(std::is_sorted(bars.begin(), bars.end()));
    EXPECT_LT(bars.front(), 20);
    EXPECT_GT(bars.back(), 180);
  }
}

/// How much neighbouring rows differ from those two apart: large where fields of two moments are woven.
double combing(const uint8_t* luma, ptrdiff_t stride, int width, int height) {
  double sum = 0;
  for (int y = 1; y + 1 < height; ++y) {
    for (int x = 0; x < width; ++x) {
      const int middle = luma[y * stride + x], above = luma[(y - 1) * stride + x], below = luma[(y + 1) * stride + x];
      if (std::abs(above - below) < 16) sum += std::abs(2 * middle - above - below);
    }
  }
  return sum / (width * height);
}

TEST(Picture, DeinterlacesToTheFrameRateTheSameHoweverAFrameIsReached) {
  const auto clip =
      filteredClip("interlaced.mp4", "testsrc2=s=320x240:r=50:d=1.2,scroll=h=0.05,format=yuv420p,tinterlace=interleave_top",
                   "-c:v libx264 -crf 8 -flags +ilme+ildct -x264-params tff=1:keyint=8:scenecut=0:bframes=2");
  const std::string woven = testing::decodedPlanes(clip);
  const Decoded linear(clip);
  EXPECT_TRUE(linear.info().interlaced);
  EXPECT_NEAR(linear.info().nominalFrameRate, 25, 0.01);
  const CMTime start = linear.info().edits[0].mediaStart;
  for (int i = 0; i < 30; ++i) {
    const CMTime time = CMTimeAdd(start, CMTimeMake(i, 25));
    const PictureRef picture = linear.at(time);
    ASSERT_TRUE(picture);
    const auto* stored = reinterpret_cast<const uint8_t*>(woven.data()) + static_cast<size_t>(i) * 320 * 240 * 3 / 2;
    EXPECT_LT(combing(picture->y.data, picture->y.stride, 320, 240), 0.6 * combing(stored, 320, 320, 240)) << "frame " << i;
    const PictureRef jumped = Decoded(clip).at(time);
    ASSERT_TRUE(jumped);
    EXPECT_EQ(test::largestDifference(*picture, *jumped), 0) << "frame " << i;
  }
}

TEST(Picture, KeepsTheTracksFirstSizeWhenTheSizeChanges) {
  for (const auto& [name, width, height] :
       {std::tuple("h264_resolution_change_400x300_to_200x150.mp4", 400, 300), std::tuple("vp8_resolution_change.webm", 60, 40)}) {
    const Decoded decoded(sample(name));
    for (const double part : {0.0, 0.5, 0.99}) {
      const PictureRef picture = decoded.at(CMTimeMakeWithSeconds(CMTimeGetSeconds(decoded.file->duration()) * part, 90000));
      ASSERT_TRUE(picture) << name;
      EXPECT_TRUE(picture->width == width && picture->height == height) << name << " at " << part;
    }
  }
  // Red first, green after the change.
  const Decoded decoded(sample("h264_resolution_change_400x300_to_200x150.mp4"));
  const Rgb first = colorAt(*decoded.at(kCMTimeZero), 200, 150), last = colorAt(*decoded.at(CMTimeMake(19, 10)), 390, 290);
  EXPECT_TRUE(first[0] > 150 && first[1] < 100) << first[0] << " " << first[1];
  EXPECT_TRUE(last[0] < 100 && last[1] > 80) << last[0] << " " << last[1];
}

TEST(Picture, KeepsTransparency) {
  const PictureRef vp9 = Decoded(sample("vp9_alpha_transparent_200x200.webm")).at(CMTimeMake(1, 1));
  ASSERT_TRUE(vp9 && vp9->hasAlpha());
  EXPECT_EQ(test::sampleOf(*vp9, 3, 2, 2), 0);
  const auto clip =
      colorClip(",format=rgba,geq=r='r(X,Y)':g='g(X,Y)':b='b(X,Y)':a='if(lt(X,64),255,64)',format=argb", "-c:v qtrle", "alpha.mov");
  const PictureRef half = Decoded(clip).at(kCMTimeZero);
  ASSERT_TRUE(half && half->hasAlpha());
  EXPECT_EQ(test::sampleOf(*half, 3, 20, 20), 255);
  EXPECT_EQ(test::sampleOf(*half, 3, 100, 20), 64);
}

TEST(Picture, HoldsTheLastGoodOneThroughDamageAndLogsIt) {
  const auto clip =
      makeClip({.frameCount = 40, .width = 640, .height = 360, .gop = 10, .videoOptions = {"-movflags", "faststart"}});
  std::string bytes = testing::readFile(clip);
  bytes.replace(static_cast<size_t>(testing::MovieProbe(clip).packets("v:0").at(14).position), 40, std::string(40, '\xff'));
  const testing::LogCapture log;
  const Decoded decoded(testing::writeFile("damaged.mp4", bytes));
  for (int i = 0; i < 40; ++i) {
    const PictureRef picture = decoded.at(CMTimeMake(i, 30));
    ASSERT_TRUE(picture) << i;
    if (i <= 14 || i >= 20) {
      EXPECT_EQ(testing::readFrameIndex(*picture), i == 14 ? 13 : i);
    }
  }
  EXPECT_TRUE(log.contains({"damaged.mp4", "damaged picture", "at 0.467 s"}));
}

TEST(Picture, IsTheSameWithAnyNumberOfThreadsAndOutlivesItsDecoder) {
  const auto clip = testing::openMedia(makeClip({.frameCount = 20, .gop = 7, .bFrames = 3}), MediaKind::video);
  const int order[] = {0, 1, 2, 13, 19, 3, 8};
  std::vector<PictureRef> pictures;
  for (const int threads : {1, 2, 3}) {
    const auto decoder = testing::decoderFor<VideoDecoder>(clip, VideoDecoder::Options{threads});
    for (const int i : order)
      pictures.push_back(decoder->frameAt(CMTimeAdd(clip.info().edits[0].mediaStart, CMTimeMake(i, 30)), nullptr)->picture);
  }
  for (size_t i = 0; i < pictures.size(); ++i) {
    EXPECT_EQ(testing::readFrameIndex(*pictures[i]), order[i % 7]);
    EXPECT_EQ(test::largestDifference(*pictures[i], *pictures[i % 7]), 0) << order[i % 7];
  }
}

}  // namespace
}  // namespace vidloom
