#include "vidloom/platform/pixels/PixelConversion.h"

#include <array>
#include <cmath>

#include "tests/platform/pixels/EveryTarget.h"
#include "tests/platform/pixels/TestPictures.h"
#include "vidloom/platform/pixels/ColorTransform.h"

namespace vidloom {
namespace {

using namespace test;
using Color = std::array<double, 3>;

const PictureColor kAllColors[] = {kLimited601, kFull601, kLimited709, kFull709};

std::array<int, 3> toCodes(const Color& rgb, const PictureColor& color) {
  const CodeScale scale = CodeScale::of(color.matrix, color.fullRange);
  const double luma = scale.kr * rgb[0] + (1 - scale.kr - scale.kb) * rgb[1] + scale.kb * rgb[2];
  const auto code = [](double value) { return static_cast<int>(std::clamp(std::floor(value + 0.5), 0.0, 255.0)); };
  return {code(scale.lumaOffset + scale.lumaScale * luma / 255),
          code(128 + scale.chromaScale * (rgb[2] - luma) / (255 * 2 * (1 - scale.kb))),
          code(128 + scale.chromaScale * (rgb[0] - luma) / (255 * 2 * (1 - scale.kr)))};
}

/// Colours on a grid through the cube.
std::vector<Color> gridOfColors() {
  std::vector<Color> colors;
  for (int i = 0; i < 216; ++i) colors.push_back({i / 36 * 51.0, i / 6 % 6 * 51.0, i % 6 * 51.0});
  return colors;
}
const std::vector<Color> kGrid = gridOfColors();

/// A picture where every colour of the grid fills 8 x 4 pixels.
std::shared_ptr<MutablePicture> gridPicture(const PictureColor& color) {
  return makePicture(8 * 36, 4 * 6, color, false, [&](int plane, int x, int y) {
    const int step = plane == 0 ? 1 : 2;
    return toCodes(kGrid[static_cast<size_t>(y * step / 4 * 36 + x * step / 8)], color)[plane];
  });
}

/// Compares the chroma sample at (x, y) and the luma to the lower right of its middle.
void expectCodes(const Picture& picture, int x, int y, const Color& color, double tolerance) {
  for (int plane = 0; plane < 3; ++plane) {
    const int found = plane == 0 ? sampleOf(picture, 0, 2 * x + 1, 2 * y + 1) : sampleOf(picture, plane, x, y);
    EXPECT_NEAR(found, toCodes(color, picture.color)[plane], tolerance) << "plane " << plane << " at chroma " << x << "," << y;
  }
}

struct Biplanar {
  Biplanar(int width, int height) : luma(width, height), chroma((width + 1) / 2 * 2, (height + 1) / 2) {}
  BiplanarPlanes planes() { return {luma.writable().data, luma.width(), chroma.writable().data, chroma.width()}; }
  Plane luma, chroma;
};

TEST(RangeConversion, IsExactlyRoundedForEveryCode) {
  const auto codes = [](int plane, int x, int y) { return plane == 0 ? x : x + 128 * (y % 2); };
  const auto rounded = [](double value) { return static_cast<int>(std::clamp(std::floor(value + 0.5), 0.0, 255.0)); };
  onEveryTarget([&] {
    Biplanar toFull(256, 4), toLimited(256, 4);
    writeBiplanar(*makePicture(256, 4, kLimited709, false, codes), ColorMatrix::bt709, true, toFull.planes());
    writeBiplanar(*makePicture(256, 4, kFull709, false, codes), ColorMatrix::bt709, false, toLimited.planes());
    for (int code = 0; code < 256; ++code) {
      EXPECT_EQ(toFull.luma.at(code, 0), rounded((code - 16) * 255 / 219.0)) << code;
      EXPECT_EQ(toLimited.luma.at(code, 0), rounded(code * 219 / 255.0 + 16)) << code;
      const int x = 2 * (code % 128), y = code / 128;
      EXPECT_EQ(toFull.chroma.at(x, y), rounded((code - 128) * 255 / 224.0 + 128)) << code;
      EXPECT_EQ(toLimited.chroma.at(x + 1, y), rounded((code - 128) * 224 / 255.0 + 128)) << code;
    }
  });
}

TEST(ColorConversion, KeepsColoursBetweenAllMatricesAndRanges) {
  for (const PictureColor& from : kAllColors) {
    for (const PictureColor& to : kAllColors) {
      SCOPED_TRACE(from.matrixName + std::to_string(from.fullRange) + " to " + to.matrixName + std::to_string(to.fullRange));
      const auto source = gridPicture(from);
      onEveryTarget([&] {
        const auto converted = PicturePool::shared().make(source->width, source->height, to, false);
        convertColor(*source, *converted);
        for (int i = 0; i < 216; ++i) expectCodes(*converted, i % 36 * 4 + 2, i / 36 * 2, kGrid[size_t(i)], 2);
      });
    }
  }
}

TEST(ColorConversion, BringsLumaAlongWithInterpolatedChroma) {
  // A ramp of chroma: without interpolation, luma would go in steps.
  const auto ramp = makePicture(64, 8, kLimited601, false, [](int plane, int x, int) {
    return plane == 0 ? 120 : plane == 1 ? 30 + 6 * x : 128;
  });
  const auto converted = PicturePool::shared().make(64, 8, kLimited709, false);
  convertColor(*ramp, *converted);
  const ColorTransform transform = ColorTransform::between(kLimited601, kLimited709);
  for (int x = 2; x < 62; ++x) {
    const double cb = 30 + 6 * ((x + 0.5) / 2 - 0.5) - 128;
    EXPECT_NEAR(sampleOf(*converted, 0, x, 3), 120 + transform.lumaFromCb * cb, 0.8) << x;
  }
}

/// The grid of colours as BGRA with that alpha, straight or premultiplied; a colour fills 2 x 2 pixels.
constexpr int kGridWidth = 2 * 216;
std::vector<uint8_t> gridBGRA(int alpha, bool premultiplied) {
  std::vector<uint8_t> bytes;
  for (int i = 0; i < 2 * kGridWidth; ++i) {
    const Color& color = kGrid[static_cast<size_t>(i % kGridWidth / 2)];
    for (const size_t channel : {2, 1, 0})
      bytes.push_back(static_cast<uint8_t>(premultiplied ? std::round(color[channel] * alpha / 255) : color[channel]));
    bytes.push_back(static_cast<uint8_t>(alpha));
  }
  return bytes;
}

TEST(BGRAConversion, ReadsColoursInEveryMatrixAndRangeAndWritesThemBack) {
  const std::vector<uint8_t> bytes = gridBGRA(255, false);
  for (const PictureColor& color : kAllColors) {
    SCOPED_TRACE(color.matrixName + std::to_string(color.fullRange));
    onEveryTarget([&] {
      const auto picture = PicturePool::shared().make(kGridWidth, 2, color, false);
      readBGRA(bytes.data(), 4 * kGridWidth, AlphaMode::ignored, *picture);
      for (int i = 0; i < 216; ++i) expectCodes(*picture, i, 0, kGrid[static_cast<size_t>(i)], 1);
      Biplanar planes(kGridWidth, 2), same(kGridWidth, 2);
      convertBGRAToBiplanar(bytes.data(), 4 * kGridWidth, kGridWidth, 2, color.matrix, color.fullRange, planes.planes());
      writeBiplanar(*picture, color.matrix, color.fullRange, same.planes());
      EXPECT_TRUE(planes.luma == same.luma && planes.chroma == same.chroma);
      std::vector<uint8_t> back(bytes.size()), fromBiplanar(bytes.size());
      writeBGRA(*picture, AlphaMode::ignored, back.data(), 4 * kGridWidth);
      convertBiplanarToBGRA(planes.planes(), kGridWidth, 2, color.matrix, color.fullRange, fromBiplanar.data(), 4 * kGridWidth);
      EXPECT_EQ(back, fromBiplanar);
      double sum = 0;
      for (size_t i = 0; i < bytes.size(); sum += back[i] - bytes[i], ++i)
        ASSERT_NEAR(back[i], bytes[i], color.fullRange ? 2 : 3) << "byte " << i;
      EXPECT_NEAR(sum / static_cast<double>(bytes.size()), 0, 0.2) << "neither darker nor brighter";
    });
  }
}

TEST(BGRAConversion, KeepsAlphaApartFromColour) {
  for (const AlphaMode mode : {AlphaMode::straight, AlphaMode::premultiplied}) {
    const std::vector<uint8_t> bytes = gridBGRA(128, mode == AlphaMode::premultiplied);
    const auto picture = PicturePool::shared().make(kGridWidth, 2, kFull709, true);
    readBGRA(bytes.data(), 4 * kGridWidth, mode, *picture);
    for (int i = 0; i < 216; ++i) expectCodes(*picture, i, 0, kGrid[static_cast<size_t>(i)], 2);
    EXPECT_EQ(sampleOf(*picture, 3, 5, 1), 128);
    std::vector<uint8_t> back(bytes.size());
    writeBGRA(*picture, mode, back.data(), 4 * kGridWidth);
    for (size_t i = 0; i < bytes.size(); ++i) ASSERT_NEAR(back[i], bytes[i], 4) << i;
  }
}

TEST(BGRAConversion, WeighsChromaByAlpha) {
  // Two opaque red pixels beside two transparent green ones.
  const std::vector<uint8_t> bytes = {0, 0, 255, 255, 0, 255, 0, 0, 0, 0, 255, 255, 0, 255, 0, 0};
  const auto picture = PicturePool::shared().make(2, 2, kLimited709, true);
  readBGRA(bytes.data(), 8, AlphaMode::straight, *picture);
  const std::array<int, 3> red = toCodes({255, 0, 0}, kLimited709);
  EXPECT_NEAR(sampleOf(*picture, 1, 0, 0), red[1], 1);
  EXPECT_NEAR(sampleOf(*picture, 2, 0, 0), red[2], 1);
}

TEST(PixelConversion, TakesPicturesOfAnySize) {
  const std::array<int, 3> green = toCodes({90, 200, 10}, kLimited601);
  for (const auto& [width, height] : {std::pair{1, 1}, {2, 1}, {1, 2}, {3, 5}, {35, 1}, {65, 33}}) {
    SCOPED_TRACE(std::to_string(width) + "x" + std::to_string(height));
    std::vector<uint8_t> bytes;
    for (int i = 0; i < width * height; ++i) bytes.insert(bytes.end(), {10, 200, 90, 255});
    onEveryTarget([&, width = width, height = height] {
      const auto picture = PicturePool::shared().make(width, height, kLimited601, true);
      readBGRA(bytes.data(), 4 * width, AlphaMode::straight, *picture);
      EXPECT_LE(largestDifference(*picture, *flatPicture(width, height, green[0], green[1], green[2])), 1);
      const auto converted = PicturePool::shared().make(width, height, kLimited709, true);
      convertColor(*flatPicture(width, height, 81, 90, 240, kLimited601), *converted);
      EXPECT_LE(largestDifference(*converted, *flatPicture(width, height, 63, 102, 240)), 1);
      EXPECT_EQ(sampleOf(*converted, 3, width - 1, height - 1), 255);
    });
  }
}

}  // namespace
}  // namespace vidloom
