// Sizes, ranges and colour tags of what is written.
#include <gtest/gtest.h>

#include <numeric>

#include "tests/platform/ffmpeg/MovieMaker.h"
#include "tests/support/MovieProbe.h"
#include "tests/support/SamplePictures.h"
#include "vidloom/platform/ffmpeg/MovieWriter.h"

namespace vidloom::testing {
namespace {

std::filesystem::path movieOf(const std::vector<PictureRef>& pictures, const MovieWriter::VideoSettings& settings) {
  const auto destination = freshDestination();
  ErrorKeeper error;
  const auto writer = MovieWriter::create(destination, settings, std::nullopt, error.slot());
  EXPECT_TRUE(writer) << error.text();
  for (size_t i = 0; writer && i < pictures.size(); ++i) {
    EXPECT_TRUE(writer->appendVideo(pictures[i], CMTimeMake(static_cast<int64_t>(i), 30), CMTimeMake(1, 30), error.slot()))
        << error.text();
  }
  EXPECT_TRUE(writer && writer->finish(error.slot())) << error.text();
  return destination;
}

/// The decoder's own planes of all frames, one after the other.
std::string decodedPlanes(const std::filesystem::path& movie) {
  std::string bytes;
  EXPECT_EQ(runProgram({"ffmpeg", "-v", "error", "-i", movie.string(), "-f", "rawvideo", "-pix_fmt", "yuv420p", "-"}, &bytes), 0);
  return bytes;
}

double meanOf(const std::string& bytes, size_t from, size_t count) {
  const auto begin = bytes.begin() + static_cast<ptrdiff_t>(from);
  const auto sum = std::accumulate(begin, begin + static_cast<ptrdiff_t>(count), int64_t{0},
                                   [](int64_t total, char value) { return total + static_cast<uint8_t>(value); });
  return static_cast<double>(sum) / static_cast<double>(count);
}

struct Size {
  int width, height;
};

class PictureSizes : public ::testing::TestWithParam<Size> {};

TEST_P(PictureSizes, TheMovieHasTheAskedSizeAndTheWholePicture) {
  const auto [width, height] = GetParam();
  const auto movie =
      movieOf({flatPicture(width, height, 180, 90, 160), flatPicture(width, height, 60, 90, 160)}, smallVideo(width, height));
  const MovieProbe probe(movie);
  EXPECT_EQ(probe.number("v:0", "width"), width);
  EXPECT_EQ(probe.number("v:0", "height"), height);
  const size_t luma = static_cast<size_t>(width) * static_cast<size_t>(height);
  const size_t chroma = static_cast<size_t>((width + 1) / 2) * static_cast<size_t>((height + 1) / 2);
  const std::string planes = decodedPlanes(movie);
  ASSERT_EQ(planes.size(), 2 * (luma + 2 * chroma));
  EXPECT_NEAR(meanOf(planes, 0, luma), 180, 1);
  EXPECT_NEAR(meanOf(planes, luma, chroma), 90, 1);
  EXPECT_NEAR(meanOf(planes, luma + 2 * chroma, luma), 60, 1);
}

INSTANTIATE_TEST_SUITE_P(Table, PictureSizes,
                         ::testing::Values(Size{853, 481}, Size{854, 481}, Size{101, 64}, Size{17, 15}, Size{2, 2}, Size{3, 2},
                                           Size{1080, 1920}));

TEST(MovieWriterPictureTest, PicturesOfAnotherSizeAreStretchedToFill) {
  const auto movie =
      movieOf({numberedPicture(11, 160, 96), numberedPicture(12, 480, 180), numberedPicture(13, 320, 192)}, smallVideo(320, 192));
  EXPECT_EQ(decodedFrameIndices(movie), (std::vector<int>{11, 12, 13}));
}

struct Tags {
  PictureColor color;
  std::string matrix, primaries, transfer;
  double luma, cb;  ///< of a full or limited-range picture with luma 200 and Cb 50
};

class ColorTags : public ::testing::TestWithParam<Tags> {};

TEST_P(ColorTags, AreThoseOfTheFirstPictureAndTheRangeIsLimited) {
  const Tags& tags = GetParam();
  const PictureRef picture = flatPicture(64, 64, 200, 50, 128, tags.color);
  const auto movie = movieOf({picture, picture}, smallVideo(64, 64));
  const MovieProbe probe(movie);
  EXPECT_EQ(probe.field("v:0", "color_range"), "tv");
  EXPECT_EQ(probe.field("v:0", "color_space"), tags.matrix);
  EXPECT_EQ(probe.field("v:0", "color_primaries"), tags.primaries);
  EXPECT_EQ(probe.field("v:0", "color_transfer"), tags.transfer);
  const std::string planes = decodedPlanes(movie);
  EXPECT_NEAR(meanOf(planes, 0, 64 * 64), tags.luma, 1);
  EXPECT_NEAR(meanOf(planes, 64 * 64, 32 * 32), tags.cb, 1);
}

INSTANTIATE_TEST_SUITE_P(
    Table, ColorTags,
    ::testing::Values(
        Tags{{}, "bt709", "bt709", "bt709", 200, 50},
        Tags{{ColorMatrix::bt709, true, "bt709", "bt709", "bt709"},
             "bt709",
             "bt709",
             "bt709",
             16 + 200 * 219 / 255.0,
             128 + (50 - 128) * 224 / 255.0},
        Tags{{ColorMatrix::bt601, false, "smpte170m", "smpte170m", "smpte170m"}, "smpte170m", "smpte170m", "smpte170m", 200, 50},
        Tags{{ColorMatrix::bt601, false, "bt470bg", "smpte170m", "bt470bg"}, "bt470bg", "bt470bg", "smpte170m", 200, 50},
        Tags{{ColorMatrix::bt709, false, "bt709", "iec61966-2-1", "bt709"}, "bt709", "bt709", "iec61966-2-1", 200, 50}));

TEST(MovieWriterPictureTest, LaterPicturesInAnotherMatrixAreConvertedToTheFirst) {
  const PictureColor sd{ColorMatrix::bt601, false, "smpte170m", "smpte170m", "smpte170m"};
  // Green by either matrix: Y, Cb and Cr of R'G'B' = (0, 1, 0).
  const auto movie = movieOf({flatPicture(64, 64, 173, 42, 26), flatPicture(64, 64, 145, 54, 34, sd)}, smallVideo(64, 64));
  const std::string planes = decodedPlanes(movie);
  const size_t frameBytes = 64 * 64 * 3 / 2;
  EXPECT_NEAR(meanOf(planes, frameBytes, 64 * 64), 173, 2);
  EXPECT_NEAR(meanOf(planes, frameBytes + 64 * 64, 32 * 32), 42, 2);
  EXPECT_EQ(MovieProbe(movie).field("v:0", "color_space"), "bt709");
}

}  // namespace
}  // namespace vidloom::testing
