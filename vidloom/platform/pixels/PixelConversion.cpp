#include "vidloom/platform/pixels/PixelConversion.h"

#include <libyuv/planar_functions.h>

#include <algorithm>
#include <cstring>
#include <vector>

#include "vidloom/platform/pixels/BgraKernels.h"
#include "vidloom/platform/pixels/ColorTransform.h"
#include "vidloom/platform/pixels/MatrixKernels.h"
#include "vidloom/platform/pixels/PlaneView.h"
#include "vidloom/platform/pixels/RangeKernels.h"

namespace vidloom {
namespace {

constexpr int kBytesPerPixel = 4;

struct PictureRange {
  RangeMap luma, chroma;

  static PictureRange between(bool fromFull, bool toFull) {
    if (fromFull == toFull) return {kSameRange, kSameRange};
    return toFull ? PictureRange{kLimitedToFullLuma, kLimitedToFullChroma} : PictureRange{kFullToLimitedLuma, kFullToLimitedChroma};
  }
};

void mapPlane(const PlaneView& source, const MutablePlaneView& destination, const RangeMap& map) {
  for (int y = 0; y < source.height; ++y) mapRow(destination.row(y), source.row(y), source.width, map);
}

void fillPlane(const MutablePlaneView& plane, int value) {
  for (int y = 0; y < plane.height; ++y) std::memset(plane.row(y), value, static_cast<size_t>(plane.width));
}

/// The changes of luma that two neighbouring chroma rows bring, one sample longer at both ends.
class LumaChanges {
 public:
  explicit LumaChanges(int width) : width_(width) {
    for (auto& row : rows_) row.resize(static_cast<size_t>(width) + 1 + kLumaChangePadding);
  }

  int16_t* row(int y) { return rows_[y % 3].data() + 1; }
  void extend(int y) {
    row(y)[-1] = row(y)[0];
    row(y)[width_] = row(y)[width_ - 1];
  }

 private:
  int width_;
  std::vector<int16_t> rows_[3];
};

struct ChromaRows {
  const uint8_t *cb, *cr;
};

struct MutableChromaRows {
  uint8_t *cb, *cr;
};

/// `chromaOf(y)` gives a row of old chroma, `chromaFor(y)` one to be written, and `chromaDone(y)` is called when it is.
template <class ChromaOf, class ChromaFor, class ChromaDone>
void transformMatrix(const PlaneView& luma, const ColorTransform& transform, const MutablePlaneView& newLuma, ChromaOf chromaOf,
                     ChromaFor chromaFor, ChromaDone chromaDone) {
  const int width = (luma.width + 1) / 2, height = (luma.height + 1) / 2;
  LumaChanges changes(width);
  const auto transformChroma = [&](int y) {
    const ChromaRows from = chromaOf(y);
    const MutableChromaRows to = chromaFor(y);
    transformChromaRow(to.cb, to.cr, changes.row(y), from.cb, from.cr, width, transform);
    changes.extend(y);
    chromaDone(y);
  };
  transformChroma(0);
  for (int y = 0; y < luma.height; ++y) {
    const int near = y / 2;
    if (y % 2 == 0 && near + 1 < height) transformChroma(near + 1);
    const int far = std::clamp(y % 2 == 0 ? near - 1 : near + 1, 0, height - 1);
    transformLumaRow(newLuma.row(y), luma.row(y), changes.row(near), changes.row(far), luma.width, transform);
  }
}

/// One row of both chroma planes.
struct ChromaBuffer {
  explicit ChromaBuffer(int width) : cb(static_cast<size_t>(width)), cr(cb.size()) {}
  MutableChromaRows rows() { return {cb.data(), cr.data()}; }
  ChromaRows readRows() const { return {cb.data(), cr.data()}; }

  std::vector<uint8_t> cb, cr;
};

ChromaRows chromaRows(const Picture& picture, int y) { return {planeOf(picture, 1).row(y), planeOf(picture, 2).row(y)}; }
MutableChromaRows chromaRows(MutablePicture& picture, int y) { return {planeOf(picture, 1).row(y), planeOf(picture, 2).row(y)}; }

PictureColor colorOf(ColorMatrix matrix, bool fullRange) {
  PictureColor color;
  color.matrix = matrix;
  color.fullRange = fullRange;
  return color;
}

/// Pixels as rows of both kinds: as they are meant to be seen through their alpha and multiplied by it.
class AlphaRows {
 public:
  AlphaRows(const uint8_t* bgra, ptrdiff_t stride, int width, AlphaMode mode)
      : bgra_(bgra), stride_(stride), width_(width), mode_(mode) {
    straight_.resize(static_cast<size_t>(width) * kBytesPerPixel);
    for (auto& row : premultiplied_) row.resize(straight_.size());
  }

  const uint8_t* straight(int y) {
    const uint8_t* row = bgra_ + y * stride_;
    if (mode_ != AlphaMode::premultiplied) return row;
    libyuv::ARGBUnattenuate(row, 0, straight_.data(), 0, width_, 1);
    return straight_.data();
  }
  const uint8_t* premultiplied(int y) {
    const uint8_t* row = bgra_ + y * stride_;
    if (mode_ != AlphaMode::straight) return row;
    libyuv::ARGBAttenuate(row, 0, premultiplied_[y % 2].data(), 0, width_, 1);
    return premultiplied_[y % 2].data();
  }

 private:
  const uint8_t* bgra_;
  ptrdiff_t stride_;
  int width_;
  AlphaMode mode_;
  std::vector<uint8_t> straight_;
  std::vector<uint8_t> premultiplied_[2];
};

}  // namespace

void writeBiplanar(const Picture& picture, ColorMatrix matrix, bool fullRange, const BiplanarPlanes& destination) {
  const MutablePlaneView luma{destination.y, destination.yStride, picture.width, picture.height};
  const auto chromaRow = [&](int y) { return destination.cbcr + y * destination.cbcrStride; };
  if (picture.color.matrix != matrix) {
    ChromaBuffer buffer(picture.chromaWidth());
    return transformMatrix(
        planeOf(picture, 0), ColorTransform::between(picture.color, colorOf(matrix, fullRange)), luma,
        [&](int y) { return chromaRows(picture, y); }, [&](int) { return buffer.rows(); },
        [&](int y) { interleaveRow(chromaRow(y), buffer.cb.data(), buffer.cr.data(), picture.chromaWidth(), kSameRange); });
  }
  const PictureRange range = PictureRange::between(picture.color.fullRange, fullRange);
  mapPlane(planeOf(picture, 0), luma, range.luma);
  for (int y = 0; y < picture.chromaHeight(); ++y) {
    const ChromaRows rows = chromaRows(picture, y);
    interleaveRow(chromaRow(y), rows.cb, rows.cr, picture.chromaWidth(), range.chroma);
  }
}

void readBiplanar(const BiplanarPlanes& source, ColorMatrix matrix, bool fullRange, MutablePicture& destination) {
  if (destination.hasAlpha()) fillPlane(planeOf(destination, 3), 255);
  const PlaneView luma{source.y, source.yStride, destination.width, destination.height};
  const auto chromaRow = [&](int y) { return source.cbcr + y * source.cbcrStride; };
  const int width = destination.chromaWidth();
  if (destination.color.matrix != matrix) {
    ChromaBuffer buffer(width);
    const auto splitRow = [&](int y) {
      deinterleaveRow(buffer.cb.data(), buffer.cr.data(), chromaRow(y), width, kSameRange);
      return buffer.readRows();
    };
    return transformMatrix(
        luma, ColorTransform::between(colorOf(matrix, fullRange), destination.color), planeOf(destination, 0), splitRow,
        [&](int y) { return chromaRows(destination, y); }, [](int) {});
  }
  const PictureRange range = PictureRange::between(fullRange, destination.color.fullRange);
  mapPlane(luma, planeOf(destination, 0), range.luma);
  for (int y = 0; y < destination.chromaHeight(); ++y) {
    const MutableChromaRows rows = chromaRows(destination, y);
    deinterleaveRow(rows.cb, rows.cr, chromaRow(y), width, range.chroma);
  }
}

void writeBGRA(const Picture& picture, AlphaMode alpha, uint8_t* bgra, ptrdiff_t stride) {
  const CodeScale scale = CodeScale::of(picture.color.matrix, picture.color.fullRange);
  const bool keepsAlpha = picture.hasAlpha() && alpha != AlphaMode::ignored;
  const PlaneView luma = planeOf(picture, 0), cb = planeOf(picture, 1), cr = planeOf(picture, 2), alphas = planeOf(picture, 3);
  for (int y = 0; y < picture.height; ++y) {
    const PlaneRow row{luma.row(y), cb.row(y / 2), cr.row(y / 2), keepsAlpha ? alphas.row(y) : nullptr};
    bgraOfPlanes(bgra + y * stride, row, picture.width, scale, keepsAlpha && alpha == AlphaMode::premultiplied);
  }
}

void convertBiplanarToBGRA(const BiplanarPlanes& source, int width, int height, ColorMatrix matrix, bool fullRange, uint8_t* bgra,
                           ptrdiff_t stride) {
  const CodeScale scale = CodeScale::of(matrix, fullRange);
  const int chromaWidth = (width + 1) / 2;
  std::vector<uint8_t> cb(static_cast<size_t>(chromaWidth)), cr(cb.size());
  for (int y = 0; y < height; ++y) {
    if (y % 2 == 0) deinterleaveRow(cb.data(), cr.data(), source.cbcr + y / 2 * source.cbcrStride, chromaWidth, kSameRange);
    const PlaneRow row{source.y + y * source.yStride, cb.data(), cr.data(), nullptr};
    bgraOfPlanes(bgra + y * stride, row, width, scale, false);
  }
}

void readBGRA(const uint8_t* bgra, ptrdiff_t stride, AlphaMode alpha, MutablePicture& destination) {
  const CodeScale scale = CodeScale::of(destination.color.matrix, destination.color.fullRange);
  const bool keepsAlpha = alpha != AlphaMode::ignored && destination.hasAlpha();
  if (destination.hasAlpha() && !keepsAlpha) fillPlane(planeOf(destination, 3), 255);
  AlphaRows rows(bgra, stride, destination.width, alpha);
  for (int y = 0; y < destination.height; ++y) {
    lumaOfBGRA(planeOf(destination, 0).row(y), keepsAlpha ? rows.straight(y) : rows.premultiplied(y), destination.width, scale);
    if (!keepsAlpha) continue;
    uint8_t* alphas = planeOf(destination, 3).row(y);
    for (int x = 0; x < destination.width; ++x) alphas[x] = bgra[y * stride + kBytesPerPixel * x + 3];
  }
  std::vector<uint8_t> chroma(2 * static_cast<size_t>(destination.chromaWidth()));
  for (int y = 0; y < destination.chromaHeight(); ++y) {
    const uint8_t* here = rows.premultiplied(2 * y);
    const uint8_t* below = 2 * y + 1 < destination.height ? rows.premultiplied(2 * y + 1) : here;
    (keepsAlpha ? chromaOfPremultipliedBGRA : chromaOfBGRA)(chroma.data(), here, below, destination.width, scale);
    deinterleaveRow(planeOf(destination, 1).row(y), planeOf(destination, 2).row(y), chroma.data(), destination.chromaWidth(),
                    kSameRange);
  }
}

void convertBGRAToBiplanar(const uint8_t* bgra, ptrdiff_t stride, int width, int height, ColorMatrix matrix, bool fullRange,
                           const BiplanarPlanes& destination) {
  const CodeScale scale = CodeScale::of(matrix, fullRange);
  for (int y = 0; y < height; y += 2) {
    const uint8_t* here = bgra + y * stride;
    const uint8_t* below = y + 1 < height ? here + stride : here;
    lumaOfBGRA(destination.y + y * destination.yStride, here, width, scale);
    if (y + 1 < height) lumaOfBGRA(destination.y + (y + 1) * destination.yStride, below, width, scale);
    chromaOfBGRA(destination.cbcr + y / 2 * destination.cbcrStride, here, below, width, scale);
  }
}

bool isOpaqueBGRA(const uint8_t* bgra, ptrdiff_t stride, int width, int height) {
  for (int y = 0; y < height; ++y) {
    const uint8_t* row = bgra + y * stride;
    uint8_t all = 255;
    for (int x = 0; x < width; ++x) all &= row[kBytesPerPixel * x + 3];
    if (all != 255) return false;
  }
  return true;
}

void convertColor(const Picture& picture, MutablePicture& destination) {
  if (picture.color.matrix == destination.color.matrix) {
    const PictureRange range = PictureRange::between(picture.color.fullRange, destination.color.fullRange);
    mapPlane(planeOf(picture, 0), planeOf(destination, 0), range.luma);
    for (const int plane : {1, 2}) mapPlane(planeOf(picture, plane), planeOf(destination, plane), range.chroma);
  } else {
    transformMatrix(
        planeOf(picture, 0), ColorTransform::between(picture.color, destination.color), planeOf(destination, 0),
        [&](int y) { return chromaRows(picture, y); }, [&](int y) { return chromaRows(destination, y); }, [](int) {});
  }
  if (!destination.hasAlpha()) return;
  if (picture.hasAlpha()) return mapPlane(planeOf(picture, 3), planeOf(destination, 3), kSameRange);
  fillPlane(planeOf(destination, 3), 255);
}

}  // namespace vidloom
