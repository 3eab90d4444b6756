#include "vidloom/platform/reading/OutputColor.h"

#include <gtest/gtest.h>

#include "tests/platform/reading/FakeMedia.h"

namespace vidloom {
namespace {

using testing::emptySegment;
using testing::FakeFile;
using testing::FakeTrack;
using testing::seconds;
using testing::segment;

PictureColor color(ColorMatrix matrix, const std::string& tags, bool fullRange = false) {
  return {matrix, fullRange, tags, tags == "bt470bg" ? "smpte170m" : tags, tags};
}

const PictureColor k709 = color(ColorMatrix::bt709, "bt709");
const PictureColor k601 = color(ColorMatrix::bt601, "smpte170m");
const PictureColor kPal = color(ColorMatrix::bt601, "bt470bg");
const PictureColor kFull601 = color(ColorMatrix::bt601, "smpte170m", true);

/// What comes out for sources of these colours, two on a track.
PictureColor colorOf(const std::vector<PictureColor>& sources, const std::shared_ptr<AVMutableVideoComposition>& composition) {
  std::vector<std::shared_ptr<AVAssetTrack>> tracks;
  for (size_t i = 0; i < sources.size(); ++i) {
    const auto file = FakeFile::steadyVideo("film", 30, 1, 30);
    file->tracks_[0].color = sources[i];
    tracks.push_back(std::make_shared<FakeTrack>(
        static_cast<CMPersistentTrackID>(i + 1), AVMediaTypeVideo,
        std::vector{emptySegment(kCMTimeZero, seconds(1)), segment(file, seconds(1), seconds(1), kCMTimeZero)}));
  }
  return outputColor(*composition, tracks);
}

TEST(OutputColor, IsThatOfTheSourcesWhereAllAgreeAndBT709Otherwise) {
  const auto silent = AVMutableVideoComposition::videoComposition();
  struct Row {
    std::vector<PictureColor> sources;
    PictureColor output;
  };
  PictureColor shared601 = k601;
  shared601.primaries = "bt709";
  const Row rows[] = {
      {{}, k709},           {{k709, k709}, k709}, {{k601, k601, k601}, k601}, {{kFull601, k601}, k601},
      {{k601, k709}, k709}, {{kPal, kPal}, kPal}, {{k601, kPal}, shared601},
  };
  for (const Row& row : rows) {
    const PictureColor output = colorOf(row.sources, silent);
    EXPECT_EQ(output, row.output) << row.sources.size() << " sources: " << output.primaries << " " << output.matrixName;
  }
}

TEST(OutputColor, LeavesBlankFootageOutOfIt) {
  const auto blank = FakeFile::video("blank", 30, {0}, 16, 16), film = FakeFile::steadyVideo("film", 30, 1, 30);
  blank->tracks_[0].color = k601;
  film->tracks_[0].color = kPal;
  const auto composition = AVMutableVideoComposition::videoComposition();
  const auto colorOfFiles = [&](const std::vector<std::shared_ptr<FakeFile>>& files) {
    std::vector<MediaSegment> segments;
    for (const auto& file : files) segments.push_back(segment(file, seconds(0), seconds(1), kCMTimeZero));
    return outputColor(*composition, {std::make_shared<FakeTrack>(1, AVMediaTypeVideo, segments)});
  };
  EXPECT_EQ(colorOfFiles({film, blank}), kPal);
  EXPECT_EQ(colorOfFiles({blank}), k709);
  blank->tracks_[0].colorIsTagged = true;
  EXPECT_EQ(colorOfFiles({blank}), k601) << "a small picture that says what it is";
}

TEST(OutputColor, IsWhatTheCompositionSaysFirst) {
  const auto composition = AVMutableVideoComposition::videoComposition();
  composition->setColorYCbCrMatrix(AVVideoYCbCrMatrix_ITU_R_709_2);
  composition->setColorPrimaries(AVVideoColorPrimaries_ITU_R_709_2);
  composition->setColorTransferFunction(AVVideoTransferFunction_ITU_R_709_2);
  EXPECT_EQ(colorOf({k601, kFull601}, composition).matrix, ColorMatrix::bt709);
  EXPECT_EQ(colorOf({k601}, composition).primaries, "bt709");
  composition->setColorYCbCrMatrix(AVVideoYCbCrMatrix_ITU_R_601_4);
  composition->setColorPrimaries(AVVideoColorPrimaries_EBU_3213);
  EXPECT_EQ(colorOf({k709}, composition).matrix, ColorMatrix::bt601);
  EXPECT_EQ(colorOf({k709}, composition).primaries, "bt470bg");
}

}  // namespace
}  // namespace vidloom
