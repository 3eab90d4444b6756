#include "vidloom/platform/reading/OutputColor.h"

#include <gtest/gtest.h>

#include "tests/platform/reading/FakeMedia.h"

namespace vidloom {
namespace {

using namespace testing;

PictureColor color(ColorMatrix matrix, const std::string& tags, bool fullRange = false) {
  return {matrix, fullRange, tags, tags == "bt470bg" ? "smpte170m" : tags, tags};
}

const PictureColor k709 = color(ColorMatrix::bt709, "bt709");
const PictureColor k601 = color(ColorMatrix::bt601, "smpte170m");
const PictureColor kPal = color(ColorMatrix::bt601, "bt470bg");
const PictureColor kFull601 = color(ColorMatrix::bt601, "smpte170m", true);

std::shared_ptr<FakeFile> film(const PictureColor& color, int width = 64) {
  const auto file = FakeFile::video("film", 30, {0}, width, width);
  file->tracks_[0].color = color;
  return file;
}

/// What comes out for a track with a gap and these files.
PictureColor colorOf(const std::vector<std::shared_ptr<FakeFile>>& files, const AVMutableVideoComposition& composition) {
  std::vector<MediaSegment> segments{emptySegment(kCMTimeZero, seconds(1))};
  for (const auto& file : files) segments.push_back(segment(file, seconds(1), seconds(1), kCMTimeZero));
  return outputColor(composition, {std::make_shared<FakeTrack>(1, AVMediaTypeVideo, segments)});
}

TEST(OutputColor, IsThatOfTheSourcesWhereAllAgreeAndBT709Otherwise) {
  const auto silent = AVMutableVideoComposition::videoComposition();
  PictureColor shared601 = k601;
  shared601.primaries = "bt709";
  const auto taggedBlank = film(k601, 16);
  taggedBlank->tracks_[0].colorIsTagged = true;
  const struct {
    const char* what;
    std::vector<std::shared_ptr<FakeFile>> files;
    PictureColor output;
  } rows[] = {
      {"no source", {}, k709},
      {"one colour", {film(k601), film(k601), film(k601)}, k601},
      {"another one", {film(kPal), film(kPal)}, kPal},
      {"two ranges", {film(kFull601), film(k601)}, k601},
      {"two matrices", {film(k601), film(k709)}, k709},
      {"two primaries", {film(k601), film(kPal)}, shared601},
      {"blank footage beside a film", {film(kPal), film(k601, 16)}, kPal},
      {"blank footage alone", {film(k601, 16)}, k709},
      {"a small picture that says what it is", {taggedBlank}, k601},
  };
  for (const auto& [what, files, expected] : rows) {
    const PictureColor output = colorOf(files, *silent);
    EXPECT_EQ(output, expected) << what << ": " << output.primaries << " " << output.matrixName;
  }
}

TEST(OutputColor, IsWhatTheCompositionSaysFirst) {
  const auto composition = AVMutableVideoComposition::videoComposition();
  composition->setColorYCbCrMatrix(AVVideoYCbCrMatrix_ITU_R_709_2);
  composition->setColorPrimaries(AVVideoColorPrimaries_ITU_R_709_2);
  composition->setColorTransferFunction(AVVideoTransferFunction_ITU_R_709_2);
  EXPECT_EQ(colorOf({film(k601), film(kFull601)}, *composition).matrix, ColorMatrix::bt709);
  EXPECT_EQ(colorOf({film(k601)}, *composition).primaries, "bt709");
  composition->setColorYCbCrMatrix(AVVideoYCbCrMatrix_ITU_R_601_4);
  composition->setColorPrimaries(AVVideoColorPrimaries_EBU_3213);
  EXPECT_EQ(colorOf({film(k709)}, *composition).matrix, ColorMatrix::bt601);
  EXPECT_EQ(colorOf({film(k709)}, *composition).primaries, "bt470bg");
}

}  // namespace
}  // namespace vidloom
