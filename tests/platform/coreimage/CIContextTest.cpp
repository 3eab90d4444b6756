#include "vidloom/platform/coreimage/CIContext.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cmath>
#include <functional>
#include <random>
#include <thread>

#include "tests/platform/pixels/TestPictures.h"
#include "tests/support/Fixtures.h"
#include "tests/support/ImageFiles.h"
#include "tests/support/SamplePictures.h"
#include "vidloom/platform/coreimage/CIFilter.h"
#include "vidloom/platform/pixels/LayerCompositor.h"

namespace vidloom {
namespace {

using namespace testing;

/// A bitmap of those straight colours; y counts from the top.
CGImageRef bitmap(int width, int height, const std::function<Rgba(int x, int y)>& color) {
  const auto bytes = std::make_shared<std::string>(rgbaBytes(width, height, [&](int x, int y) {
    const Rgba rgba = color(x, y);
    return Rgba{rgba[2], rgba[1], rgba[0], rgba[3]};
  }));
  const std::shared_ptr<const uint8_t> data(bytes, reinterpret_cast<const uint8_t*>(bytes->data()));
  return CGImageCreate(static_cast<size_t>(width), static_cast<size_t>(height), 4 * static_cast<size_t>(width), data,
                       kCGImageAlphaFirst, nullptr);
}

CIImageRef imageOf(int width, int height, const std::function<Rgba(int x, int y)>& color) {
  return CIImage::imageWithCGImage(bitmap(width, height, color));
}

CIImageRef flat(int width, int height, const Rgba& color) {
  return imageOf(width, height, [=](int, int) { return color; });
}

CIImageRef noise(unsigned seed, int width, int height, bool opaque) {
  std::mt19937 random(seed);
  return imageOf(width, height, [&](int, int) {
    const auto bits = static_cast<uint32_t>(random());
    return Rgba{static_cast<uint8_t>(bits), static_cast<uint8_t>(bits >> 8), static_cast<uint8_t>(bits >> 16),
                opaque ? uint8_t{255} : static_cast<uint8_t>(bits >> 24)};
  });
}

CGImageRef rendered(const CIImageRef& image, const CGRect& rect) {
  std::optional<NSError> error;
  CGImageRef result = CIContext::context()->createCGImage(image, rect, &error);
  if (!result) ADD_FAILURE() << *error;
  return result;
}

/// Premultiplied, counted from the top left.
Rgba pixel(const CGImageRef& image, int x, int y) {
  const uint8_t* bgra = CGImageGetBytes(image) + static_cast<size_t>(y) * CGImageGetBytesPerRow(image) + 4 * static_cast<size_t>(x);
  return {bgra[2], bgra[1], bgra[0], bgra[3]};
}

int largestDifference(const CGImageRef& one, const CGImageRef& other, int x, int y) {
  int largest = 0;
  for (int row = 0; row < static_cast<int>(CGImageGetHeight(one)); ++row) {
    for (int column = 0; column < static_cast<int>(CGImageGetWidth(one)); ++column) {
      const Rgba a = pixel(one, column, row), b = pixel(other, column + x, row + y);
      for (size_t i = 0; i < 4; ++i) largest = std::max(largest, std::abs(a[i] - b[i]));
    }
  }
  return largest;
}

// ---- Recipes beside a plain model: the colour at the middle of every pixel.

using Color = std::array<double, 4>;  ///< premultiplied
struct Modelled {
  CIImageRef image;
  std::function<Color(double x, double y)> colorAt;
};

Modelled randomBitmap(std::mt19937& random) {
  const auto pick = [&](int low, int high) { return std::uniform_int_distribution(low, high)(random); };
  const CGImageRef image = bitmap(pick(1, 12), pick(1, 12), [&](int, int) {
    const auto byte = [&] { return static_cast<uint8_t>(pick(0, 255)); };
    return Rgba{byte(), byte(), byte(), pick(0, 1) ? uint8_t{255} : byte()};
  });
  return {CIImage::imageWithCGImage(image), [image](double x, double y) -> Color {
            const double top = static_cast<double>(CGImageGetHeight(image)) - y;
            if (x < 0 || top < 0 || x >= static_cast<double>(CGImageGetWidth(image)) || y <= 0) return {};
            const Rgba rgba = pixel(image, static_cast<int>(x), static_cast<int>(top));
            const double alpha = rgba[3] / 255.0;
            return {rgba[0] * alpha, rgba[1] * alpha, rgba[2] * alpha, 255 * alpha};
          }};
}

Modelled composited(const Modelled& top, const Modelled& bottom) {
  return {top.image->imageByCompositingOverImage(bottom.image), [=](double x, double y) {
            Color color = top.colorAt(x, y);
            const Color under = bottom.colorAt(x, y);
            const double through = 1 - color[3] / 255;
            for (size_t i = 0; i < 4; ++i) color[i] += under[i] * through;
            return color;
          }};
}

Modelled randomRecipe(std::mt19937& random, int depth) {
  const auto pick = [&](int low, int high) { return std::uniform_int_distribution(low, high)(random); };
  if (depth == 0) return randomBitmap(random);
  const Modelled before = randomRecipe(random, depth - 1);
  const double x = pick(-6, 6), y = pick(-6, 6);
  const int step = pick(0, 7);
  if (step == 0) return composited(before, randomRecipe(random, depth - 1));
  if (step == 1) return composited(randomRecipe(random, depth - 1), before);
  if (step == 2) {
    const double right = x + pick(1, 15), top = y + pick(1, 15);
    return {before.image->imageByCroppingToRect(CGRectMake(x, y, right - x, top - y)), [=](double atX, double atY) {
              return atX > x && atX < right && atY > y && atY < top ? before.colorAt(atX, atY) : Color{};
            }};
  }
  const CGAffineTransform matrices[] = {
      {1, 0, 0, 1, x, y}, {0, 1, -1, 0, x, y}, {0, -1, 1, 0, x, y}, {-1, 0, 0, 1, x, y}, {0, 1, 1, 0, x, y}};
  return {before.image->imageByApplyingTransform(matrices[step - 3]),
          [before, inverse = CGAffineTransformInvert(matrices[step - 3])](double atX, double atY) {
            const CGPoint at = CGPointApplyAffineTransform({atX, atY}, inverse);
            return before.colorAt(at.x, at.y);
          }};
}

TEST(CIContext, RandomRecipesMatchAPlainModelPixelByPixel) {
  const int side = 24;
  for (unsigned seed = 1; seed <= 200; ++seed) {
    std::mt19937 random(seed);
    const Modelled recipe = randomRecipe(random, 1 + static_cast<int>(seed % 5));
    const CGImageRef image = rendered(recipe.image, CGRectMake(-side, -side, 2 * side, 2 * side));
    ASSERT_TRUE(image);
    for (int y = 0; y < 2 * side; ++y) {
      for (int x = 0; x < 2 * side; ++x) {
        const Color expected = recipe.colorAt(x - side + 0.5, side - y - 0.5);
        const Rgba actual = pixel(image, x, y);
        for (size_t i = 0; i < 4; ++i) ASSERT_NEAR(actual[i], expected[i], 3) << "seed " << seed << " at " << x << ", " << y;
      }
    }
  }
}

TEST(CIContext, ScaledAndTurnedImagesKeepTheirColoursInsideAndFadeAtTheirEdges) {
  const CGAffineTransform turn{1.2, 0.9, -0.9, 1.2, 50, 20};  // by 1.5
  const CGImageRef image = rendered(flat(40, 40, {255, 0, 0, 255})->imageByApplyingTransform(turn), CGRectMake(0, 0, 120, 120));
  double area = 0;
  for (int i = 0; i < 120 * 120; ++i) {
    const Rgba color = pixel(image, i % 120, i / 120);
    area += color[3] / 255.0;
    EXPECT_EQ(color, (Rgba{color[3], 0, 0, color[3]}));
  }
  EXPECT_NEAR(area, 40 * 40 * 1.5 * 1.5, 20);
}

TEST(CIContext, PartsOfPixelsAtTheEdgesOfACropAreTranslucent) {
  const CGImageRef image =
      rendered(flat(10, 10, {255, 255, 255, 255})->imageByCroppingToRect(CGRectMake(2.5, 3, 4, 4.25)), CGRectMake(0, 0, 10, 10));
  EXPECT_NEAR(pixel(image, 2, 5)[3], 128, 2);
  EXPECT_NEAR(pixel(image, 4, 2)[3], 64, 2);
  EXPECT_EQ(pixel(image, 4, 5)[3], 255);
  EXPECT_EQ(pixel(image, 4, 7)[3], 0);
}

TEST(CIContext, EnlargedCropsDoNotShowWhatWasCutAway) {
  const CIImageRef image = imageOf(8, 4, [](int x, int) { return x < 4 ? Rgba{255, 0, 0, 255} : Rgba{0, 0, 255, 255}; });
  const CIImageRef red = image->imageByCroppingToRect(CGRectMake(0, 0, 4, 4))->imageByApplyingTransform({8, 0, 0, 8, 0, 0});
  EXPECT_EQ(red->extent(), CGRectMake(0, 0, 32, 32));
  EXPECT_EQ(pixel(rendered(red, red->extent()), 31, 10), (Rgba{255, 0, 0, 255}));
}

TEST(CIImage, ExtentsFollowTheSteps) {
  const CIImageRef image = flat(10, 20, {9, 9, 9, 255});
  const CIImageRef endless = CIImage::imageWithColor(1, 0, 0, 1);
  const CIImageRef moved = image->imageByApplyingTransform({1, 0, 0, 1, 20, 0});
  const CGAffineTransform shear{1, 0, 1, 1, 0, 0};
  using Row = std::tuple<const char*, CIImageRef, CGRect>;
  for (const auto& [name, made, extent] :
       {Row{"moved", image->imageByApplyingTransform({1, 0, 0, 1, -3.5, 2}), {{-3.5, 2}, {10, 20}}},
        Row{"sheared", image->imageByApplyingTransform(shear), {{0, 0}, {30, 20}}},
        Row{"vanished", image->imageByApplyingTransform({}), CGRectNull},
        Row{"cropped", image->imageByCroppingToRect(CGRectMake(5, 30, 50, -15)), {{5, 15}, {5, 5}}},
        Row{"cropped away", image->imageByCroppingToRect(CGRectMake(10, 0, 5, 5)), CGRectNull},
        Row{"endless", endless, CGRectInfinite},
        Row{"endless cropped", endless->imageByCroppingToRect(CGRectMake(1, 2, 3, 4)), {{1, 2}, {3, 4}}},
        Row{"over", moved->imageByCompositingOverImage(image), {{0, 0}, {30, 20}}},
        Row{"over nothing", image->imageByCompositingOverImage(nullptr), {{0, 0}, {10, 20}}},
        Row{"nothing over", CIImage::emptyImage()->imageByCompositingOverImage(image), {{0, 0}, {10, 20}}},
        Row{"clamped", image->imageByClampingToExtent(), CGRectInfinite},
        Row{"blurred", image->imageByApplyingFilter("CIGaussianBlur", {{"inputRadius", 2}}), {{-6, -6}, {22, 32}}},
        Row{"grey", image->imageByApplyingFilter("CIPhotoEffectMono", {}), {{0, 0}, {10, 20}}}}) {
    EXPECT_EQ(made->extent(), extent) << name;
  }
  EXPECT_FALSE(CIImage::imageWithCGImage(nullptr));
  EXPECT_FALSE(CIImage::imageWithCVPixelBuffer(nullptr));
  std::optional<NSError> error;
  EXPECT_FALSE(CIImage::imageWithContentsOfURL("/nowhere.png", &error));
  EXPECT_TRUE(error);
}

// ---- Filters

/// Values that change a picture.
NSDictionary strongValues(const CIFilterRef& filter) {
  NSDictionary values;
  for (const CIFilterParameter& parameter : filter->parameters()) {
    const double middle = (parameter.minimum + parameter.maximum) / 2;
    values[parameter.key] =
        parameter.defaultValue + (middle > parameter.defaultValue ? 0.05 : -0.1) * (parameter.maximum - parameter.minimum);
  }
  return values;
}

TEST(CIFilter, EveryFilterRunsAndAPartOfItsResultIsThatPartOfTheWhole) {
  EXPECT_GE(CIFilter::filterNames().size(), 12U);
  for (const std::string& name : CIFilter::filterNames()) {
    const CIFilterRef filter = CIFilter::filterWithName(name);
    ASSERT_TRUE(filter) << name;
    for (const bool opaque : {true, false}) {
      const CIImageRef before = noise(5, 60, 50, opaque);
      const CIImageRef after = before->imageByApplyingFilter(name, strongValues(filter));
      ASSERT_TRUE(after) << name;
      const CGImageRef whole = rendered(after, CGRectMake(0, 0, 60, 50));
      EXPECT_GT(largestDifference(whole, rendered(before, CGRectMake(0, 0, 60, 50)), 0, 0), 8) << name;
      EXPECT_LE(largestDifference(rendered(after, CGRectMake(20, 10, 15, 20)), whole, 20, 20), 2) << name;
    }
  }
}

TEST(CIFilter, ColoursComeOutAsTheFiltersSay) {
  using Row = std::tuple<const char*, NSDictionary, Rgba, Rgba>;
  for (const auto& [name, values, before, after] :
       {Row{"CIColorInvert", {}, {10, 100, 255, 255}, {245, 155, 0, 255}},
        Row{"CIColorInvert", {}, {10, 100, 255, 128}, {245, 155, 0, 128}},
        Row{"CIPhotoEffectMono", {}, {255, 0, 0, 255}, {54, 54, 54, 255}},
        Row{"CIColorControls", {}, {10, 100, 200, 255}, {10, 100, 200, 255}},
        Row{"CIColorControls", {{"inputSaturation", 0}}, {0, 255, 0, 255}, {182, 182, 182, 255}},
        Row{"CIColorControls", {{"inputContrast", 2.0}}, {10, 140, 240, 255}, {0, 153, 255, 255}},
        Row{"CIColorControls", {{"inputBrightness", -1.0}}, {10, 140, 240, 255}, {0, 0, 0, 255}},
        Row{"CIColorControls", {{"inputBrightness", 0.2}, {"inputContrast", 0.5}}, {0, 128, 255, 255}, {115, 179, 242, 255}},
        Row{"CIExposureAdjust", {{"inputEV", 2.2}}, {20, 100, 200, 255}, {40, 200, 255, 255}},
        Row{"CIExposureAdjust", {{"inputEV", -2.2}}, {20, 100, 200, 255}, {10, 50, 100, 255}},
        Row{"CIGammaAdjust", {{"inputPower", 2}}, {0, 128, 255, 255}, {0, 64, 255, 255}},
        Row{"CIHueAdjust", {{"inputAngle", 0.0}}, {10, 100, 200, 255}, {10, 100, 200, 255}},
        Row{"CIColorPosterize", {{"inputLevels", 2}}, {100, 130, 255, 255}, {0, 255, 255, 255}},
        Row{"CISepiaTone", {{"inputIntensity", 0}}, {10, 100, 200, 255}, {10, 100, 200, 255}},
        Row{"CISharpenLuminance", {{"inputSharpness", 2}}, {10, 100, 200, 255}, {10, 100, 200, 255}},
        Row{"CIMorphologyMaximum", {{"inputRadius", 0}}, {10, 100, 200, 255}, {10, 100, 200, 255}}}) {
    const CIImageRef image = flat(16, 16, before)->imageByApplyingFilter(name, values);
    ASSERT_TRUE(image) << name;
    const Rgba actual = pixel(rendered(image, CGRectMake(0, 0, 16, 16)), 8, 8);
    for (size_t i = 0; i < 4; ++i) {
      EXPECT_NEAR(actual[i], i < 3 ? after[i] * after[3] / 255.0 : after[i], 2) << name << ", component " << i;
    }
  }
}

TEST(CIFilter, BlursKeepTheAmountOfLightAndOfAClampedImageItsEdges) {
  const CIImageRef dot = flat(9, 9, {255, 255, 255, 255});
  const CIImageRef blurred = dot->imageByApplyingFilter("CIGaussianBlur", {{"inputRadius", 4}});
  const CGImageRef image = rendered(blurred, blurred->extent());
  double light = 0;
  for (int y = 0; y < static_cast<int>(CGImageGetHeight(image)); ++y) {
    for (int x = 0; x < static_cast<int>(CGImageGetWidth(image)); ++x) light += pixel(image, x, y)[3] / 255.0;
  }
  EXPECT_NEAR(light, 81, 6);
  for (const char* name : {"CIGaussianBlur", "CIBoxBlur"}) {
    const CIImageRef clamped = flat(30, 20, {200, 100, 50, 255})->imageByClampingToExtent()->imageByApplyingFilter(name, {});
    const CGImageRef all = rendered(clamped->imageByCroppingToRect(CGRectMake(0, 0, 30, 20)), CGRectMake(0, 0, 30, 20));
    for (const auto& [x, y] : {std::pair(0, 0), {29, 0}, {0, 19}, {29, 19}, {15, 10}}) {
      const Rgba color = pixel(all, x, y);
      EXPECT_NEAR(color[0], 200, 1) << name << " at " << x << ", " << y;
      EXPECT_EQ(color[3], 255) << name << " at " << x << ", " << y;
    }
  }
}

TEST(CIFilter, UnknownNamesAndValuesAreErrorsThatNameThem) {
  using Row = std::tuple<const char*, NSDictionary, const char*>;
  for (const auto& [name, values, text] :
       {Row{"CINothing", {}, "There is no image filter \"CINothing\""},
        Row{"CIGaussianBlur", {{"radius", 3}}, "\"CIGaussianBlur\" has no parameter \"radius\": it has inputRadius"},
        Row{"CIColorInvert", {{"inputRadius", 3}}, "\"CIColorInvert\" has no parameter \"inputRadius\": it has none"},
        Row{"CIGaussianBlur",
            {{"inputRadius", std::string("3")}},
            "\"inputRadius\" of the image filter \"CIGaussianBlur\" must be a number"},
        Row{"CIGaussianBlur", {{"inputRadius", -1}}, "must be from 0 to 100 and not -1"},
        Row{"CIGaussianBlur", {{"inputRadius", std::nan("")}}, "must be from 0 to 100 and not nan"}}) {
    std::optional<NSError> error;
    EXPECT_FALSE(flat(2, 2, {})->imageByApplyingFilter(name, values, &error)) << name;
    ASSERT_TRUE(error) << name;
    EXPECT_NE(error->localizedDescription().find(text), std::string::npos) << *error;
  }
  const CIFilterRef filter = CIFilter::filterWithName("CIGaussianBlur");
  EXPECT_FALSE(filter->outputImage());
  EXPECT_FALSE(filter->setValue(1000, "inputRadius"));
  EXPECT_EQ(filter->valueForKey("inputRadius"), 10.0);
  EXPECT_EQ(filter->valueForKey("inputAngle"), std::nullopt);
}

// ---- Destinations

CVPixelBufferRef bufferOf(OSType format, size_t width, size_t height) {
  CVPixelBufferRef buffer;
  EXPECT_EQ(CVPixelBufferCreate(width, height, format, {}, &buffer), kCVReturnSuccess);
  return buffer;
}

TEST(CIContext, WhiteOverWhiteStaysWhiteAtEveryEdge) {
  const double angle = 0.4;
  const CGAffineTransform turn{0.8 * std::cos(angle), 0.8 * std::sin(angle), -0.8 * std::sin(angle), 0.8 * std::cos(angle), 40, 10};
  const CIImageRef disc = imageOf(64, 64, [](int x, int y) {
    const double alpha = std::clamp(30.5 - std::hypot(x - 31.5, y - 31.5), 0.0, 1.0);
    return Rgba{255, 255, 255, static_cast<uint8_t>(std::lround(255 * alpha))};
  });
  const CIImageRef square = flat(50, 50, {255, 255, 255, 255});
  const CIImageRef white = flat(100, 80, {255, 255, 255, 255});
  const CGRect frame = CGRectMake(0, 0, 100, 80);
  const auto codes = [&](const CIImageRef& image) { return CIContext::context()->createPicture(image, frame, {}, false); };
  for (const CIImageRef& shape : {disc, square, disc->imageByCroppingToRect(CGRectMake(7.3, 8.6, 30, 41))}) {
    for (const CIImageRef& image :
         {shape->imageByApplyingTransform(turn)->imageByCompositingOverImage(white),
          shape->imageByApplyingTransform(turn)->imageByApplyingFilter("CIHueAdjust", {})->imageByCompositingOverImage(white)}) {
      EXPECT_LE(largestDifference(rendered(image, frame), rendered(white, frame), 0, 0), 1);
      EXPECT_LE(test::largestDifference(*codes(image), *codes(white)), 1);
    }
  }
}

TEST(CIContext, BuffersAreFilledFromTheirBottomLeftAndEmptyBeyondTheImage) {
  const CIImageRef image = imageOf(4, 4, [](int x, int y) { return quadrant(x, y, 4, 4); });
  const CVPixelBufferRef bgra = bufferOf(kCVPixelFormatType_32BGRA, 6, 6);
  const auto at = [&](int x, int y) { return pixel(CGImageCreateWithPixelBuffer(bgra), x, y); };
  ASSERT_TRUE(CIContext::context()->render(image, bgra));
  EXPECT_EQ(at(0, 5), (Rgba{0, 0, 255, 255}));
  EXPECT_EQ(at(0, 2), (Rgba{255, 0, 0, 255}));
  EXPECT_EQ(at(3, 2), (Rgba{0, 255, 0, 255}));
  for (const auto& [x, y] : {std::pair(4, 5), {0, 1}}) EXPECT_EQ(at(x, y), Rgba{}) << x << ", " << y;
  ASSERT_TRUE(CIContext::context()->render(image, bgra, CGRectMake(2, 0, 2, 2), nullptr));
  EXPECT_EQ(at(0, 5), (Rgba{255, 255, 255, 255}));
  EXPECT_EQ(at(2, 5), Rgba{});
  const CVPixelBufferRef planar = bufferOf(kCVPixelFormatType_420YpCbCr8BiPlanarFullRange, 6, 6);
  ASSERT_TRUE(CIContext::context()->render(image, planar));
  const PictureRef picture = CVPixelBufferCopyPicture(planar);
  const uint8_t* lowest = picture->y.data + 5 * picture->y.stride;
  EXPECT_NEAR(lowest[3], 235, 1);
  EXPECT_NEAR(lowest[0], 41, 1) << "an untagged small buffer is BT.601";
  EXPECT_EQ(picture->y.data[5], 16);
}

TEST(CIContext, TransparencyShowsInTheAlphaInformation) {
  EXPECT_EQ(CGImageGetAlphaInfo(rendered(flat(4, 4, {1, 2, 3, 255}), CGRectMake(0, 0, 4, 4))), kCGImageAlphaNoneSkipFirst);
  EXPECT_EQ(CGImageGetAlphaInfo(rendered(flat(4, 4, {1, 2, 3, 255}), CGRectMake(0, 0, 5, 4))), kCGImageAlphaPremultipliedFirst);
  EXPECT_EQ(CGImageGetAlphaInfo(rendered(flat(4, 4, {1, 2, 3, 254}), CGRectMake(0, 0, 4, 4))), kCGImageAlphaPremultipliedFirst);
}

TEST(CIContext, LayersOfVideoAreDrawnToTheSameCodesAsByTheCompositor) {
  const PictureRef below = noisyPicture(1, 64, 48), above = noisyPicture(2, 32, 32);
  const CIImageRef video = CIImage::imageWithPicture(below), inset = CIImage::imageWithPicture(above);
  const CGRect frame = CGRectMake(0, 0, 64, 48);
  const auto context = CIContext::context();
  EXPECT_EQ(context->createPicture(video, frame, below->color, false), below);
  EXPECT_EQ(context->createPicture(video, frame, below->color, true), below);
  // The upper picture at half its size, its top left at (10, 6) of the frame seen from the top left.
  const CIImageRef composed =
      inset->imageByApplyingTransform({0.5, 0, 0, 0.5, 10, 48 - 6 - 16})->imageByCompositingOverImage(video);
  const PictureRef expected =
      LayerCompositor().compose({{below, {64, 48}}, {above, {32, 32}, {0.5, 0, 0, 0.5, 10, 6}}}, 64, 48, below->color);
  EXPECT_EQ(test::largestDifference(*context->createPicture(composed, frame, below->color, false), *expected), 0);
  // A part that begins at an even sample stays in place.
  const PictureRef part =
      context->createPicture(video->imageByCroppingToRect(CGRectMake(4, 4, 40, 40)), CGRectMake(4, 4, 40, 40), below->color, false);
  EXPECT_EQ(part->y.data, below->y.data + 4 * below->y.stride + 4);
}

TEST(CIContext, PicturesKeepTheirAlphaWhereThatIsAskedFor) {
  const CIImageRef image = flat(8, 8, {255, 255, 255, 128})->imageByApplyingTransform({1, 0, 0, 1, 2, 0});
  const auto context = CIContext::context();
  const PictureRef withAlpha = context->createPicture(image, CGRectMake(0, 0, 12, 8), PictureColor{}, true);
  ASSERT_TRUE(withAlpha->hasAlpha());
  EXPECT_EQ(withAlpha->alpha.data[0], 0);
  EXPECT_EQ(withAlpha->alpha.data[4], 128);
  EXPECT_NEAR(withAlpha->y.data[4], 235, 1);
  const PictureRef overBlack = context->createPicture(image, CGRectMake(0, 0, 12, 8), PictureColor{}, false);
  EXPECT_FALSE(overBlack->hasAlpha());
  EXPECT_NEAR(overBlack->y.data[4], 16 + 110, 1);
}

TEST(CIContext, ThreadsThatShareAContextGetWhatOneAloneGets) {
  const auto context = CIContext::context();
  const CIImageRef source = noise(3, 90, 70, false);
  const auto render = [&](double radius) {
    const CIImageRef blurred = source->imageByApplyingFilter("CIGaussianBlur", {{"inputRadius", radius}});
    return context->createCGImage(blurred->imageByApplyingTransform({0.7, 0.1, 0, 0.8, 3, 5}), CGRectMake(0, 0, 80, 60));
  };
  const CGImageRef alone[] = {render(2), render(3)};
  std::vector<std::thread> threads;
  std::atomic<int> differences = 0;
  for (int thread = 0; thread < 4; ++thread) {
    threads.emplace_back([&, thread] {
      for (int round = 0; round < 5; ++round) {
        differences += largestDifference(render(2 + thread % 2), alone[thread % 2], 0, 0);
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(differences, 0);
}

TEST(CIContext, WhatCannotBeRenderedIsAnError) {
  const CIImageRef image = flat(4, 4, {1, 2, 3, 255});
  using Row = std::tuple<CIImageRef, CGRect, const char*>;
  for (const auto& [drawn, rect, text] : {Row{nullptr, CGRectMake(0, 0, 4, 4), "there is none"}, Row{image, CGRectZero, "is empty"},
                                          Row{image, CGRectNull, "is empty"}, Row{image, CGRectInfinite, "more than 32768"},
                                          Row{image, CGRectMake(0, 0, 40000, 1), "more than 32768"}}) {
    std::optional<NSError> error;
    EXPECT_FALSE(CIContext::context()->createCGImage(drawn, rect, &error));
    ASSERT_TRUE(error) << text;
    EXPECT_NE(error->localizedDescription().find(text), std::string::npos) << *error;
  }
  std::optional<NSError> error;
  EXPECT_FALSE(CIContext::context()->render(image, nullptr, &error));
  EXPECT_FALSE(CIContext::context()->writePNGRepresentationOfImage(CIImage::imageWithColor(1, 1, 1, 1), "/tmp/x.png", &error));
  EXPECT_FALSE(CIContext::context()->writePNGRepresentationOfImage(image, "/nowhere/x.png", &error));
  EXPECT_NE(error->localizedDescription().find("/nowhere/x.png"), std::string::npos) << *error;
}

TEST(CIContext, WrittenFilesHoldTheImageOverItsExtent) {
  const std::filesystem::path path = scratchFolder() / "extent.png";
  std::optional<NSError> error;
  const CIImageRef image = imageOf(6, 4, [](int x, int y) { return quadrant(x, y, 6, 4); });
  ASSERT_TRUE(
      CIContext::context()->writePNGRepresentationOfImage(image->imageByApplyingTransform({1, 0, 0, 1, 100, -50}), path, &error))
      << *error;
  const CIImageRef back = CIImage::imageWithContentsOfURL(path, &error);
  ASSERT_TRUE(back) << *error;
  EXPECT_EQ(largestDifference(rendered(image, image->extent()), rendered(back, back->extent()), 0, 0), 0);
}

}  // namespace
}  // namespace vidloom
