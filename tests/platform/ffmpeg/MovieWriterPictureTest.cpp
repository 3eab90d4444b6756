// Sizes, ranges and colour tags of what is written.
#include <gtest/gtest.h>

#include "tests/platform/ffmpeg/MovieMaker.h"
#include "tests/platform/pixels/TestPictures.h"
#include "tests/support/MovieProbe.h"
#include "tests/support/SamplePictures.h"
#include "vidloom/platform/ffmpeg/MovieWriter.h"

namespace vidloom::testing {
namespace {

using test::flatPicture;

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

double meanOf(const std::string& bytes, size_t from, size_t count) {
  double sum = 0;
  for (size_t i = from; i < from + count; ++i) sum += static_cast<uint8_t>(bytes.at(i));
  return sum / static_cast<double>(count);
}

TEST(MovieWriterPictureTest, TheMovieHasTheAskedSizeAndTheWholePicture) {
  const std::pair<int, int> sizes[] = {{853, 481}, {17, 15}, {2, 2}, {3, 2}};
  for (const auto& [width, height] : sizes) {
    SCOPED_TRACE(std::to_string(width) + "x" + std::to_string(height));
    const auto movie =
        movieOf({flatPicture(width, height, 180, 90, 160), flatPicture(width, height, 60, 90, 160)}, smallVideo(width, height));
    EXPECT_EQ(MovieProbe(movie).number("v:0", "width"), width);
    EXPECT_EQ(MovieProbe(movie).number("v:0", "height"), height);
    const size_t luma = static_cast<size_t>(width) * static_cast<size_t>(height);
    const size_t chroma = static_cast<size_t>((width + 1) / 2) * static_cast<size_t>((height + 1) / 2);
    const std::string planes = decodedPlanes(movie);
    ASSERT_EQ(planes.size(), 2 * (luma + 2 * chroma));
    EXPECT_NEAR(meanOf(planes, 0, luma), 180, 1);
    EXPECT_NEAR(meanOf(planes, luma, chroma), 90, 1);
    EXPECT_NEAR(meanOf(planes, luma + 2 * chroma, luma), 60, 1);
  }
}

TEST(MovieWriterPictureTest, PicturesOfAnotherSizeAreStretchedToFill) {
  const auto movie =
      movieOf({numberedPicture(11, 160, 96), numberedPicture(12, 480, 180), numberedPicture(13, 320, 192)}, smallVideo(320, 192));
  EXPECT_EQ(decodedFrameIndices(movie), (std::vector<int>{11, 12, 13}));
}

TEST(MovieWriterPictureTest, TagsAreThoseOfTheFirstPictureAndTheRangeIsLimited) {
  const PictureColor colors[] = {test::kFull709,
                                 test::kLimited601,
                                 {ColorMatrix::bt601, false, "bt470bg", "smpte170m", "bt470bg"},
                                 {ColorMatrix::bt709, false, "bt709", "iec61966-2-1", "bt709"}};
  for (const PictureColor& color : colors) {
    const PictureRef picture = flatPicture(64, 64, 200, 50, 128, color);
    const auto movie = movieOf({picture, picture}, smallVideo(64, 64));
    const MovieProbe probe(movie);
    EXPECT_EQ(probe.field("v:0", "color_range"), "tv");
    EXPECT_EQ(probe.field("v:0", "color_space"), color.matrixName);
    EXPECT_EQ(probe.field("v:0", "color_primaries"), color.primaries);
    EXPECT_EQ(probe.field("v:0", "color_transfer"), color.transfer);
    const std::string planes = decodedPlanes(movie);
    EXPECT_NEAR(meanOf(planes, 0, 64 * 64), color.fullRange ? 16 + 200 * 219 / 255.0 : 200, 1);
    EXPECT_NEAR(meanOf(planes, 64 * 64, 32 * 32), color.fullRange ? 128 - 78 * 224 / 255.0 : 50, 1);
  }
}

TEST(MovieWriterPictureTest, LaterPicturesInAnotherMatrixAreConvertedToTheFirst) {
  // Green by either matrix: Y, Cb and Cr of R'G'B' = (0, 1, 0).
  const auto movie =
      movieOf({flatPicture(64, 64, 173, 42, 26), flatPicture(64, 64, 145, 54, 34, test::kLimited601)}, smallVideo(64, 64));
  const std::string planes = decodedPlanes(movie);
  EXPECT_NEAR(meanOf(planes, 64 * 96, 64 * 64), 173, 2) << "the second picture";
  EXPECT_NEAR(meanOf(planes, 64 * 160, 32 * 32), 42, 2);
  EXPECT_EQ(MovieProbe(movie).field("v:0", "color_space"), "bt709");
}

}  // namespace
}  // namespace vidloom::testing
