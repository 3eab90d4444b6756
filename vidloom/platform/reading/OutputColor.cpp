#include "vidloom/platform/reading/OutputColor.h"

#include <map>
#include <set>
#include <utility>

#include "vidloom/platform/corevideo/CVPixelColor.h"
#include "vidloom/platform/ffmpeg/MediaFile.h"

namespace vidloom {

namespace {

const std::string* const kColorKeys[] = {&kCVImageBufferColorPrimariesKey, &kCVImageBufferTransferFunctionKey,
                                         &kCVImageBufferYCbCrMatrixKey};

constexpr int kMacroblockSide = 16;

bool isPlaceholder(const MediaTrack& track) {
  return !track.colorIsTagged && track.codedWidth <= kMacroblockSide && track.codedHeight <= kMacroblockSide;
}

std::vector<PictureColor> sourceColors(const std::vector<std::shared_ptr<AVAssetTrack>>& videoTracks) {
  std::set<std::pair<const MediaFile*, int>> seen;
  std::vector<PictureColor> colors;
  for (const auto& track : videoTracks) {
    for (const MediaSegment& segment : track->mediaSegments()) {
      if (segment.isEmpty() || !seen.emplace(segment.file.get(), segment.trackIndex).second) continue;
      const MediaTrack& media = segment.file->tracks()[static_cast<size_t>(segment.trackIndex)];
      if (!isPlaceholder(media)) colors.push_back(media.color);
    }
  }
  return colors;
}

/// The value that the field has in every colour, else the one it has in `otherwise`.
template <class Value>
Value common(const std::vector<PictureColor>& colors, Value PictureColor::*field, const PictureColor& otherwise) {
  if (colors.empty()) return otherwise.*field;
  for (const PictureColor& color : colors) {
    if (color.*field != colors.front().*field) return otherwise.*field;
  }
  return colors.front().*field;
}

}  // namespace

PictureColor outputColor(const AVMutableVideoComposition& composition,
                         const std::vector<std::shared_ptr<AVAssetTrack>>& videoTracks) {
  const std::vector<PictureColor> sources = sourceColors(videoTracks);
  const PictureColor standard;
  PictureColor color;
  color.primaries = common(sources, &PictureColor::primaries, standard);
  color.transfer = common(sources, &PictureColor::transfer, standard);
  color.matrixName = common(sources, &PictureColor::matrixName, standard);
  color.matrix = common(sources, &PictureColor::matrix, standard);
  // Two names of one matrix, of different sources, leave the matrix; its name has to agree with it.
  if (color.matrix == ColorMatrix::bt601 && color.matrixName == standard.matrixName) color.matrixName = "smpte170m";
  std::map<std::string, std::string> set;
  if (composition.colorPrimaries()) set[kCVImageBufferColorPrimariesKey] = *composition.colorPrimaries();
  if (composition.colorTransferFunction()) set[kCVImageBufferTransferFunctionKey] = *composition.colorTransferFunction();
  if (composition.colorYCbCrMatrix()) set[kCVImageBufferYCbCrMatrixKey] = *composition.colorYCbCrMatrix();
  return pictureColorWithAttachments(color, set);
}

void attachColor(const CVPixelBufferRef& buffer, const PictureColor& color) {
  for (const std::string* key : kColorKeys) {
    if (CVBufferGetAttachment(buffer, *key).empty()) CVBufferSetAttachment(buffer, *key, colorAttachment(color, *key));
  }
}

bool hasMatrix(const CVPixelBufferRef& buffer, const PictureColor& color) {
  return CVBufferGetAttachment(buffer, kCVImageBufferYCbCrMatrixKey) == colorAttachment(color, kCVImageBufferYCbCrMatrixKey);
}

}  // namespace vidloom
