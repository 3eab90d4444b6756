#include "vidloom/platform/coregraphics/CGImage.h"

#include <gtest/gtest.h>

#include "tests/support/Fixtures.h"
#include "tests/support/ImageFiles.h"
#include "vidloom/platform/corevideo/CVPixelBuffer.h"
#include "vidloom/platform/pixels/Picture.h"

namespace vidloom {
namespace {

using namespace testing;

constexpr int kWidth = 32, kHeight = 16;

std::string quadrants(uint8_t alpha = 255) {
  return rgbaBytes(kWidth, kHeight, [&](int x, int y) { return quadrant(x, y, kWidth, kHeight, alpha); });
}

/// The image of a file, and the text of the error where there is none.
std::pair<CGImageRef, std::string> opened(const std::filesystem::path& path) {
  std::optional<NSError> error;
  CGImageRef image = CGImageCreateWithContentsOfURL(path, &error);
  EXPECT_EQ(image == nullptr, error.has_value()) << path;
  if (!error) return {image, ""};
  const std::string text = error->localizedDescription();
  EXPECT_NE(text.find(path.string()), std::string::npos) << text;
  return {image, text};
}

CGImageRef load(const std::filesystem::path& path) {
  const auto& [image, problem] = opened(path);
  EXPECT_EQ(problem, "");
  return image;
}

void expectRefused(const std::filesystem::path& path, const std::string& words = "") {
  const std::string problem = opened(path).second;
  EXPECT_TRUE(problem.find(words) != std::string::npos && problem != "") << path << ": " << problem;
}

Rgba pixel(const CGImageRef& image, size_t x, size_t y) {
  const uint8_t* bgra = CGImageGetBytes(image) + y * CGImageGetBytesPerRow(image) + 4 * x;
  return {bgra[2], bgra[1], bgra[0], bgra[3]};
}

void expectNear(const Rgba& actual, const Rgba& expected, int tolerance, const std::string& label) {
  for (size_t i = 0; i < 4; ++i) EXPECT_NEAR(actual[i], expected[i], tolerance) << label << ", component " << i;
}

/// The colours in the middle of the four quadrants, in reading order.
std::array<Rgba, 4> corners(const CGImageRef& image) {
  const size_t x = CGImageGetWidth(image) / 4, y = CGImageGetHeight(image) / 4;
  return {pixel(image, x, y), pixel(image, 3 * x, y), pixel(image, x, 3 * y), pixel(image, 3 * x, 3 * y)};
}

CGImageRef bitmap(const std::vector<Rgba>& pixels, CGImageAlphaInfo alpha) {
  const auto bytes = std::make_shared<std::vector<uint8_t>>();
  for (const Rgba& rgba : pixels) bytes->insert(bytes->end(), {rgba[2], rgba[1], rgba[0], rgba[3]});
  return CGImageCreate(pixels.size(), 1, 4 * pixels.size(), {bytes, bytes->data()}, alpha, nullptr);
}

struct FormatCase {
  const char* name;
  std::vector<std::string> options;
  uint8_t alpha;
  int tolerance;
  CGImageAlphaInfo alphaInfo = kCGImageAlphaNone;
  CGColorSpaceModel model = kCGColorSpaceModelRGB;
};

const std::vector<FormatCase> kFormats{{"rgb.png", {"-pix_fmt", "rgb24"}, 255, 0},
                                       {"rgba.png", {"-pix_fmt", "rgba"}, 100, 0, kCGImageAlphaFirst},
                                       {"opaque-rgba.png", {"-pix_fmt", "rgba"}, 255, 0, kCGImageAlphaFirst},
                                       {"rgba64.png", {"-pix_fmt", "rgba64be"}, 100, 0, kCGImageAlphaFirst},
                                       {"palette.png",
                                        {"-vf", "split[a][b];[a]palettegen[p];[b][p]paletteuse", "-pix_fmt", "pal8"},
                                        255,
                                        2,
                                        kCGImageAlphaNone,
                                        kCGColorSpaceModelIndexed},
                                       {"picture.gif", {}, 255, 3, kCGImageAlphaNone, kCGColorSpaceModelIndexed},
                                       {"picture.jpg", {"-q:v", "1", "-pix_fmt", "yuvj444p"}, 255, 4},
                                       {"subsampled.jpg", {"-q:v", "1", "-pix_fmt", "yuvj420p"}, 255, 6},
                                       {"lossless.webp", {"-lossless", "1", "-pix_fmt", "bgra"}, 100, 0, kCGImageAlphaFirst},
                                       {"lossy.webp", {"-quality", "100", "-pix_fmt", "yuva420p"}, 100, 6, kCGImageAlphaFirst},
                                       {"rgb.tiff", {"-pix_fmt", "rgb24"}, 255, 0},
                                       {"rgba.tiff", {"-pix_fmt", "rgba"}, 100, 0, kCGImageAlphaFirst}};

/// The file of a case, made once.
std::filesystem::path fileOf(const FormatCase& test) {
  const std::filesystem::path path = scratchFolder() / test.name;
  return std::filesystem::exists(path) ? path : makeImage(test.name, kWidth, kHeight, quadrants(test.alpha), test.options);
}

TEST(CGImage, ReadsPixelsAlphaAndColourModelOfEveryFormat) {
  for (const FormatCase& test : kFormats) {
    const CGImageRef image = load(fileOf(test));
    EXPECT_EQ(CGImageGetWidth(image), size_t{kWidth}) << test.name;
    EXPECT_EQ(CGImageGetHeight(image), size_t{kHeight}) << test.name;
    EXPECT_EQ(CGImageGetAlphaInfo(image), test.alphaInfo) << test.name;
    EXPECT_EQ(CGColorSpaceGetModel(CGImageGetColorSpace(image)), test.model) << test.name;
    const auto found = corners(image);
    for (int i = 0; i < 4; ++i) {
      const Rgba expected = quadrant(i % 2 * (kWidth - 1), i / 2 * (kHeight - 1), kWidth, kHeight, test.alpha);
      expectNear(found[static_cast<size_t>(i)], expected, test.tolerance, test.name);
    }
  }
}

TEST(CGImage, GreyImagesKeepTheirModelAndOnlySRGBHasThatName) {
  const CGImageRef grey = load(makeImage("grey.png", kWidth, kHeight, quadrants(), {"-pix_fmt", "gray"}));
  EXPECT_EQ(CGColorSpaceGetModel(CGImageGetColorSpace(grey)), kCGColorSpaceModelMonochrome);
  EXPECT_EQ(pixel(grey, 31, 15), (Rgba{255, 255, 255, 255}));
  const std::string jpeg = readFile(makeImage("plain.jpg", kWidth, kHeight, quadrants(), {}));
  const auto withProfile = [&](const std::string& description) {
    const std::string body = std::string("ICC_PROFILE\0\1\1", 14) + std::string(128, 'x') + description;
    const std::string size{static_cast<char>((body.size() + 2) >> 8), static_cast<char>(body.size() + 2)};
    return CGColorSpaceCopyName(
        CGImageGetColorSpace(load(writeFile("profile.jpg", jpeg.substr(0, 2) + "\xFF\xE2" + size + body + jpeg.substr(2)))));
  };
  EXPECT_EQ(CGColorSpaceCopyName(CGImageGetColorSpace(load(writeFile("plain2.jpg", jpeg)))), kCGColorSpaceSRGB);
  EXPECT_EQ(withProfile("sRGB IEC61966-2.1"), kCGColorSpaceSRGB);
  EXPECT_EQ(withProfile("Display P3"), std::nullopt);
}

TEST(CGImage, StandsUprightWhateverOrientationTheFileNotes) {
  // Which stored quadrant (in reading order) is seen upper left, upper right, lower left, lower right.
  const std::array<std::array<size_t, 4>, 8> shown{
      {{0, 1, 2, 3}, {1, 0, 3, 2}, {3, 2, 1, 0}, {2, 3, 0, 1}, {0, 2, 1, 3}, {2, 0, 3, 1}, {3, 1, 2, 0}, {1, 3, 0, 2}}};
  const std::string jpeg = readFile(makeImage("o.jpg", kWidth, kHeight, quadrants(), {"-q:v", "1", "-pix_fmt", "yuvj444p"}));
  const std::string png = readFile(makeImage("o.png", kWidth, kHeight, quadrants(), {}));
  const std::string webp = readFile(makeImage("o.webp", kWidth, kHeight, quadrants(), {"-lossless", "1"}));
  const std::string tiff = readFile(makeImage("o.tiff", kWidth, kHeight, quadrants(), {"-pix_fmt", "rgb24"}));
  const auto stored = corners(load(writeFile("o2.png", png)));
  for (int code = 1; code <= 8; ++code) {
    const std::string little = exifBlock(code, false), big = exifBlock(code, true);
    for (const std::string& bytes :
         {withJpegExif(jpeg, little), withJpegExif(jpeg, big), withPngExif(png, little), withPngExif(png, big),
          withWebpExif(webp, little, kWidth, kHeight), withTiffOrientation(tiff, code)}) {
      const CGImageRef image = load(writeFile("oriented", bytes));
      const std::string label = "orientation " + std::to_string(code) + " of " + bytes.substr(1, 3);
      EXPECT_EQ(CGImageGetWidth(image), static_cast<size_t>(code > 4 ? kHeight : kWidth)) << label;
      for (size_t i = 0; i < 4; ++i) expectNear(corners(image)[i], stored[shown[static_cast<size_t>(code) - 1][i]], 4, label);
    }
  }
  for (const int nonsense : {0, 9, 40000}) {
    const CGImageRef image = load(writeFile("nonsense.jpg", withJpegExif(jpeg, exifBlock(nonsense, true))));
    EXPECT_EQ(CGImageGetWidth(image), size_t{kWidth}) << nonsense;
  }
}

TEST(CGImage, ShowsTheFirstFrameOfAnAnimation) {
  const auto flat = [](Rgba color) { return rgbaBytes(kWidth, kHeight, [=](int, int) { return color; }); };
  const std::string frames = flat({255, 0, 0, 255}) + flat({0, 0, 255, 255});
  for (const auto& [name, options] : {std::pair<std::string, std::vector<std::string>>{"two.gif", {}},
                                      {"two.webp", {"-c:v", "libwebp_anim", "-lossless", "1"}}}) {
    expectNear(pixel(load(makeImage(name, kWidth, kHeight, frames, options)), 5, 5), {255, 0, 0, 255}, 3, name);
  }
}

TEST(CGImage, RefusesPicturesThatAreTooLargeWithoutMakingThem) {
  const std::string png = readFile(makeImage("small.png", kWidth, kHeight, quadrants(), {}));
  const auto pngOf = [&](const std::string& sides) {
    return png.substr(0, 8) + pngChunk("IHDR", sides + png.substr(24, 5)) + png.substr(33);
  };
  std::string jpeg = readFile(makeImage("small.jpg", kWidth, kHeight, quadrants(), {}));
  jpeg.replace(jpeg.find("\xFF\xC0") + 5, 4, "\xF5\x1F\xF4\x1F");
  expectRefused(writeFile("bomb.jpg", jpeg), "62495 x 62751 pixels");
  expectRefused(writeFile("bomb.png", pngOf(std::string("\0\0\xFF\xFF\0\0\xFF\xFF", 8))), "65535 x 65535 pixels");
  expectRefused(writeFile("long.png", pngOf(std::string("\0\0\x9C\x40\0\0\0\1", 8))), "40000 x 1 pixels");
  expectRefused(writeFile("zero.png", pngOf(std::string("\0\0\0\0\0\0\0\1", 8))), "0 x 1 pixels");
}

TEST(CGImage, FilesThatAreCutOffAnywhereAreAnError) {
  for (const FormatCase& test : kFormats) {
    const std::string bytes = readFile(fileOf(test));
    for (const size_t percent : {1, 10, 25, 40, 50, 60, 70, 80, 90, 97}) {
      SCOPED_TRACE(std::to_string(percent) + " %");
      expectRefused(writeFile(std::string("cut-") + test.name, bytes.substr(0, bytes.size() * percent / 100 + 1)));
    }
  }
}

TEST(CGImage, DamagedBytesGiveAnErrorOrAPictureAndNothingElse) {
  uint32_t random = 1;
  const auto next = [&] { return random = random * 1664525 + 1013904223; };
  for (const FormatCase& test : kFormats) {
    const std::string bytes = readFile(fileOf(test));
    for (int round = 0; round < 40; ++round) {
      std::string damaged = bytes;
      for (int i = 0; i < 3; ++i) damaged[(next() >> 8) % damaged.size()] = static_cast<char>(next() >> 16);
      SCOPED_TRACE(test.name + std::string(", round ") + std::to_string(round));
      opened(writeFile("damaged", damaged));
    }
  }
}

TEST(CGImage, WhatIsNoImageFileIsNamedInTheError) {
  expectRefused("/nowhere/at/all.png", "No such file");
  expectRefused(scratchFolder(), "is a folder");
  expectRefused(writeFile("list.png", "ffconcat version 1.0\nfile /etc/passwd\n"), "no image file");
  expectRefused(writeFile("empty.jpg", ""), "is empty");
}

TEST(CGImage, ReadsOrRefusesFilesOfOthers) {
  const auto sample = [](const char* name) { return std::filesystem::path(VIDLOOM_TEST_DATA) / "media" / name; };
  const CGImageRef printed = load(sample("jpeg_cmyk_160x227.jpg"));
  EXPECT_EQ(CGColorSpaceGetModel(CGImageGetColorSpace(printed)), kCGColorSpaceModelCMYK);
  EXPECT_EQ(CGImageGetAlphaInfo(printed), kCGImageAlphaNone);
  expectNear(pixel(printed, 20, 20), {0, 117, 175, 255}, 4, "the blue of a book's cover");
  expectRefused(sample("bad_bomb_62495x62751.jpg"));
  expectRefused(sample("bad_fuzz_47_bytes.jpg"));
  expectRefused(sample("bad_fuzz_65280x11264.gif"));
  expectRefused(sample("bad_fuzz_interlaced.png"));
  expectRefused(sample("h264_854x480.ts"), "no image file");
}

TEST(CGImage, BecomesAPictureWithAlphaOnlyWhereItHasSome) {
  const Rgba white{255, 255, 255, 255}, half{255, 255, 255, 128}, halfPremultiplied{128, 128, 128, 128};
  using Row = std::tuple<const char*, CGImageRef, int, int>;  // name, bitmap, luma, alpha or -1 without an alpha plane
  for (const auto& [name, image, luma, alpha] :
       {Row{"opaque", bitmap({white, white}, kCGImageAlphaFirst), 235, -1},
        Row{"straight", bitmap({half, white}, kCGImageAlphaFirst), 235, 128},
        Row{"straight, last", bitmap({half, white}, kCGImageAlphaLast), 235, 128},
        Row{"premultiplied", bitmap({halfPremultiplied, white}, kCGImageAlphaPremultipliedFirst), 235, 128},
        Row{"skipped", bitmap({half, white}, kCGImageAlphaNoneSkipFirst), 235, -1}}) {
    const auto picture = CGImageCopyPicture(image, PictureColor{});
    EXPECT_NEAR(picture->y.data[0], luma, 1) << name;
    EXPECT_EQ(picture->hasAlpha() ? picture->alpha.data[0] : -1, alpha) << name;
    EXPECT_EQ(CGImageCopyPicture(image, PictureColor{}), picture) << name << " is converted once";
    EXPECT_TRUE(CGImageCopyPicture(image, PictureColor{ColorMatrix::bt709, true})->color.fullRange) << name;
  }
}

TEST(CGImage, BitmapsOfImpossibleLayoutAreRefused) {
  const auto bytes = std::make_shared<std::vector<uint8_t>>(64);
  const std::shared_ptr<const uint8_t> data(bytes, bytes->data());
  EXPECT_TRUE(CGImageCreate(4, 4, 16, data, kCGImageAlphaNone, nullptr));
  EXPECT_FALSE(CGImageCreate(4, 4, 16, nullptr, kCGImageAlphaNone, nullptr));
  EXPECT_FALSE(CGImageCreate(4, 4, 16, data, kCGImageAlphaOnly, nullptr));
  for (const auto& [width, bytesPerRow] : {std::pair<size_t, size_t>{4, 15}, {0, 16}, {40000, 160000}}) {
    EXPECT_FALSE(CGImageCreate(width, 4, bytesPerRow, data, kCGImageAlphaNone, nullptr)) << width;
  }
}

TEST(CGImage, ComesBackFromAPNGFile) {
  const std::filesystem::path path = writeFile("written.png", "something else");
  std::optional<NSError> error;
  using Row = std::tuple<CGImageAlphaInfo, Rgba, Rgba>;
  for (const auto& [alpha, stored, expected] : {Row{kCGImageAlphaFirst, {200, 100, 50, 77}, {200, 100, 50, 77}},
                                                Row{kCGImageAlphaPremultipliedFirst, {100, 50, 25, 128}, {199, 100, 50, 128}},
                                                Row{kCGImageAlphaNone, {200, 100, 50, 77}, {200, 100, 50, 255}}}) {
    ASSERT_TRUE(CGImageWritePNG(bitmap({stored, {0, 0, 0, 0}}, alpha), path, &error)) << *error;
    const CGImageRef back = load(path);
    expectNear(pixel(back, 0, 0), expected, 0, "alpha " + std::to_string(alpha));
    EXPECT_EQ(CGImageGetAlphaInfo(back), alpha == kCGImageAlphaNone ? kCGImageAlphaNone : kCGImageAlphaFirst);
  }
  EXPECT_FALSE(CGImageWritePNG(bitmap({{1, 2, 3, 4}}, kCGImageAlphaFirst), "/nowhere/x.png", &error));
  EXPECT_NE(error->localizedDescription().find("/nowhere/x.png"), std::string::npos) << *error;
  EXPECT_FALSE(CGImageWritePNG(nullptr, path, &error));
}

TEST(CGImage, TakesThePixelsOfABufferAsTheyAre) {
  for (const uint8_t alpha : {uint8_t{255}, uint8_t{90}}) {
    CVPixelBufferRef buffer;
    ASSERT_EQ(CVPixelBufferCreate(1, 1, kCVPixelFormatType_32BGRA, {}, &buffer), kCVReturnSuccess);
    CVPixelBufferLockBaseAddress(buffer, 0);
    const Rgba stored{10, 20, 30, alpha};
    std::copy(stored.begin(), stored.end(), static_cast<uint8_t*>(CVPixelBufferGetBaseAddress(buffer)));
    CVPixelBufferUnlockBaseAddress(buffer, 0);
    const CGImageRef image = CGImageCreateWithPixelBuffer(buffer);
    EXPECT_EQ(pixel(image, 0, 0), (Rgba{30, 20, 10, alpha}));
    EXPECT_EQ(CGImageGetAlphaInfo(image), alpha == 255 ? kCGImageAlphaNone : kCGImageAlphaPremultipliedFirst);
  }
  EXPECT_FALSE(CGImageCreateWithPixelBuffer(nullptr));
}

TEST(CGImage, TiffFilesThatTheDecoderMistakesAreRefusedOrSetRight) {
  const std::string tiff = readFile(makeImage("a.tiff", kWidth, kHeight, quadrants(100), {"-pix_fmt", "rgba"}));
  expectRefused(writeFile("jpeg.tiff", withTiffTag(tiff, 259, 7)));
  expectRefused(writeFile("tiles.tiff", withTiffTag(tiff, 322, 16)));
  const auto half = [](int, int) { return Rgba{50, 20, 0, 100}; };
  const std::string multiplied =
      readFile(makeImage("m.tiff", kWidth, kHeight, rgbaBytes(kWidth, kHeight, half), {"-pix_fmt", "rgba"}));
  expectNear(pixel(load(writeFile("multiplied.tiff", withTiffTag(multiplied, 338, 1))), 5, 5), {128, 51, 0, 100}, 0, "multiplied");
}

}  // namespace
}  // namespace vidloom
