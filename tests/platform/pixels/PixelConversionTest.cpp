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
constexpr double kWorst = 3;

Color toRGB(double y, double cb, double cr, const PictureColor& color) {
  const CodeScale scale = CodeScale::of(color.matrix, color.fullRange);
  const double luma = 255 * (y - scale.lumaOffset) / scale.lumaScale;
  const double blue = 255 * (cb - 128) / scale.chromaScale * 2 * (1 - scale.kb);
  const double red = 255 * (cr - 128) / scale.chromaScale * 2 * (1 - scale.kr);
  return {luma + red, luma - (scale.kr * red + scale.kb * blue) / (1 - scale.kr - scale.kb), luma + blue};
}

double distance(const Color& one, const Color& other) {
  double largest = 0;
  for (int i = 0; i < 3; ++i)
    largest = std::max(largest, std::abs(std::clamp(one[i], 0.0, 255.0) - std::clamp(other[i], 0.0, 255.0)));
  return largest;
}

std::array<int, 3> toCodes(const Color& rgb, const PictureColor& color) {
  const CodeScale scale = CodeScale::of(color.matrix, color.fullRange);
  const double luma = scale.kr * rgb[0] + (1 - scale.kr - scale.kb) * rgb[1] + scale.kb * rgb[2];
  const auto code = [](double value) { return static_cast<int>(std::clamp(std::floor(value + 0.5), 0.0, 255.0)); };
  return {code(scale.lumaOffset + scale.lumaScale * luma / 255),
          code(128 + scale.chromaScale * (rgb[2] - luma) / (255 * 2 * (1 - scale.kb))),
          code(128 + scale.chromaScale * (rgb[0] - luma) / (255 * 2 * (1 - scale.kr)))};
}

/// Colours on a grid through the cube, each a block of 2 x 2 pixels.
std::vector<Color> gridOfColors() {
  std::vector<Color> colors;
  for (int r = 0; r <= 255; r += 51) {
    for (int g = 0; g <= 255; g += 51) {
      for (int b = 0; b <= 255; b += 51) colors.push_back({double(r), double(g), double(b)});
    }
  }
  return colors;
}

/// A picture where every colour of the grid fills 8 x 4 pixels.
std::shared_ptr<MutablePicture> gridPicture(const PictureColor& color) {
  const std::vector<Color> colors = gridOfColors();
  return makePicture(8 * 36, 4 * 6, color, false, [&](int plane, int x, int y) {
    const int shift = plane == 0 ? 0 : 1;
    return toCodes(colors[static_cast<size_t>((y << shift) / 4 * 36 + (x << shift) / 8)], color)[plane];
  });
}

struct Biplanar {
  Biplanar(int width, int height) : luma(width, height), chroma((width + 1) / 2 * 2, (height + 1) / 2) {}
  BiplanarPlanes planes() { return {luma.writable().data, luma.width(), chroma.writable().data, chroma.width()}; }
  Plane luma, chroma;
};

TEST(RangeConversion, IsExactlyRoundedForEveryCode) {
  const auto all =
      makePicture(256, 256, kLimited709, false, [](int plane, int x, int y) { return plane == 0 ? x : x + 128 * (y % 2); });
  const auto full =
      makePicture(256, 256, kFull709, false, [](int plane, int x, int y) { return plane == 0 ? x : x + 128 * (y % 2); });
  const auto rounded = [](double value) { return static_cast<int>(std::clamp(std::floor(value + 0.5), 0.0, 255.0)); };
  onEveryTarget([&] {
    Biplanar toFull(256, 256), toLimited(256, 256);
    writeBiplanar(*all, ColorMatrix::bt709, true, toFull.planes());
    writeBiplanar(*full, ColorMatrix::bt709, false, toLimited.planes());
    for (int code = 0; code < 256; ++code) {
      EXPECT_EQ(toFull.luma.at(code, 0), rounded((code - 16) * 255 / 219.0)) << code;
      EXPECT_EQ(toLimited.luma.at(code, 0), rounded(code * 219 / 255.0 + 16)) << code;
      const int x = 2 * (code % 128), y = code / 128;
      EXPECT_EQ(toFull.chroma.at(x, y), rounded((code - 128) * 255 / 224.0 + 128)) << code;
      EXPECT_EQ(toLimited.chroma.at(x + 1, y), rounded((code - 128) * 224 / 255.0 + 128)) << code;
    }
  });
}

TEST(RangeConversion, ToFullRangeAndBackKeepsEveryLegalCode) {
  for (const auto& [width, height] : {std::pair{640, 64}, {641, 33}, {3, 1}, {1, 1}, {130, 5}}) {
    const auto source = noisePicture(width, height, 5);
    onEveryTarget([&, width = width, height = height] {
      Biplanar full(width, height);
      writeBiplanar(*source, ColorMatrix::bt709, true, full.planes());
      const auto back = PicturePool::shared().make(width, height, kLimited709, false);
      readBiplanar(full.planes(), ColorMatrix::bt709, true, *back);
      EXPECT_EQ(largestDifference(*source, *back), 0) << width << "x" << height;
    });
  }
}

Color colorOf(const Picture& picture, int x, int y) {
  return toRGB(sampleOf(picture, 0, x, y), sampleOf(picture, 1, x / 2, y / 2), sampleOf(picture, 2, x / 2, y / 2), picture.color);
}

void expectCodes(const Picture& picture, int chromaX, const Color& color, double tolerance) {
  const std::array<int, 3> expected = toCodes(color, picture.color);
  EXPECT_NEAR(sampleOf(picture, 0, 2 * chromaX + 1, 1), expected[0], tolerance);
  EXPECT_NEAR(sampleOf(picture, 1, chromaX, 0), expected[1], tolerance);
  EXPECT_NEAR(sampleOf(picture, 2, chromaX, 0), expected[2], tolerance);
}

TEST(ColorConversion, KeepsColoursBetweenAllMatricesAndRanges) {
  for (const PictureColor& from : kAllColors) {
    for (const PictureColor& to : kAllColors) {
      const auto source = gridPicture(from);
      onEveryTarget([&] {
        const auto converted = PicturePool::shared().make(source->width, source->height, to, false);
        convertColor(*source, *converted);
        double worst = 0;
        for (int y = 2; y < source->height; y += 4) {
          for (int x = 4; x < source->width; x += 8) {
            worst = std::max(worst, distance(colorOf(*source, x, y), colorOf(*converted, x, y)));
          }
        }
        EXPECT_LE(worst, kWorst) << from.matrixName << from.fullRange << " to " << to.matrixName << to.fullRange;
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

TEST(ColorConversion, TakesPicturesOfAnySize) {
  for (const auto& [width, height] : {std::pair{1, 1}, {2, 1}, {1, 2}, {3, 5}, {65, 33}}) {
    const auto flat = flatPicture(width, height, 81, 90, 240, kLimited601);
    const auto converted = PicturePool::shared().make(width, height, kLimited709, true);
    convertColor(*flat, *converted);
    EXPECT_LE(largestDifference(*converted, *flatPicture(width, height, 63, 102, 240)), 1) << width << "x" << height;
    EXPECT_EQ(sampleOf(*converted, 3, width - 1, height - 1), 255);
  }
}

/// The grid of colours as BGRA with that alpha, straight or premultiplied; a colour fills 2 x 2 pixels.
std::vector<uint8_t> gridBGRA(int alpha, bool premultiplied) {
  std::vector<uint8_t> bytes;
  const std::vector<Color> colors = gridOfColors();
  for (int y = 0; y < 2; ++y) {
    for (const Color& color : colors) {
      for (int x = 0; x < 2; ++x) {
        for (const int channel : {2, 1, 0})
          bytes.push_back(static_cast<uint8_t>(premultiplied ? std::round(color[channel] * alpha / 255) : color[channel]));
        bytes.push_back(static_cast<uint8_t>(alpha));
      }
    }
  }
  return bytes;
}

TEST(BGRAConversion, ReadsColoursInEveryMatrixAndRange) {
  const std::vector<Color> colors = gridOfColors();
  const int width = 2 * static_cast<int>(colors.size());
  const std::vector<uint8_t> bytes = gridBGRA(255, false);
  for (const PictureColor& color : kAllColors) {
    onEveryTarget([&] {
      const auto picture = PicturePool::shared().make(width, 2, color, false);
      readBGRA(bytes.data(), 4 * width, AlphaMode::ignored, *picture);
      Biplanar planes(width, 2);
      convertBGRAToBiplanar(bytes.data(), 4 * width, width, 2, color.matrix, color.fullRange, planes.planes());
      for (int i = 0; i < static_cast<int>(colors.size()); ++i) {
        expectCodes(*picture, i, colors[static_cast<size_t>(i)], 1);
        EXPECT_EQ(planes.luma.at(2 * i + 1, 1), sampleOf(*picture, 0, 2 * i + 1, 1));
        EXPECT_EQ(planes.chroma.at(2 * i, 0), sampleOf(*picture, 1, i, 0));
        EXPECT_EQ(planes.chroma.at(2 * i + 1, 0), sampleOf(*picture, 2, i, 0));
      }
    });
  }
}

TEST(BGRAConversion, WritesColoursInEveryMatrixAndRange) {
  for (const PictureColor& color : kAllColors) {
    const auto picture = gridPicture(color);
    const int width = picture->width, height = picture->height;
    Biplanar planes(width, height);
    writeBiplanar(*picture, color.matrix, color.fullRange, planes.planes());
    onEveryTarget([&] {
      std::vector<uint8_t> bytes(4u * width * height), fromBiplanar(bytes.size());
      writeBGRA(*picture, AlphaMode::ignored, bytes.data(), 4 * width);
      convertBiplanarToBGRA(planes.planes(), width, height, color.matrix, color.fullRange, fromBiplanar.data(), 4 * width);
      EXPECT_EQ(bytes, fromBiplanar);
      double worst = 0;
      for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
          const uint8_t* pixel = &bytes[4u * (y * width + x)];
          worst = std::max(worst, distance(colorOf(*picture, x, y), {double(pixel[2]), double(pixel[1]), double(pixel[0])}));
          EXPECT_EQ(pixel[3], 255);
        }
      }
      EXPECT_LE(worst, 1) << color.matrixName << color.fullRange;
    });
  }
}

TEST(BGRAConversion, KeepsAlphaApartFromColour) {
  const std::vector<Color> colors = gridOfColors();
  const int width = 2 * static_cast<int>(colors.size());
  for (const AlphaMode mode : {AlphaMode::straight, AlphaMode::premultiplied}) {
    const std::vector<uint8_t> bytes = gridBGRA(128, mode == AlphaMode::premultiplied);
    const auto picture = PicturePool::shared().make(width, 2, kFull709, true);
    readBGRA(bytes.data(), 4 * width, mode, *picture);
    for (int i = 0; i < static_cast<int>(colors.size()); ++i) {
      expectCodes(*picture, i, colors[static_cast<size_t>(i)], 2);
      EXPECT_EQ(sampleOf(*picture, 3, 2 * i, 1), 128);
    }
    std::vector<uint8_t> back(bytes.size());
    writeBGRA(*picture, mode, back.data(), 4 * width);
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

TEST(BGRAConversion, RepeatsTheLastPixelOfOddSizes) {
  for (const auto& [width, height] : {std::pair{1, 1}, {3, 3}, {17, 5}, {35, 1}}) {
    std::vector<uint8_t> bytes;
    for (int i = 0; i < width * height; ++i) bytes.insert(bytes.end(), {10, 200, 90, 255});
    const auto picture = PicturePool::shared().make(width, height, kLimited601, true);
    onEveryTarget([&, width = width, height = height] {
      readBGRA(bytes.data(), 4 * width, AlphaMode::straight, *picture);
      const std::array<int, 3> code = toCodes({90, 200, 10}, kLimited601);
      EXPECT_LE(largestDifference(*picture, *flatPicture(width, height, code[0], code[1], code[2])), 1);
    });
  }
}

}  // namespace
}  // namespace vidloom
