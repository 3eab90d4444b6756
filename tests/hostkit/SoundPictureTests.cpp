// Waveforms and spectrograms: what is drawn where.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "hostkit/AxisTicks.h"
#include "hostkit/SpectrumPicture.h"
#include "hostkit/WaveformPicture.h"

namespace vidloom {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::Not;

std::vector<std::string> labelsOf(const std::vector<AxisTick>& ticks) {
  std::vector<std::string> labels;
  for (const AxisTick& tick : ticks) labels.push_back(tick.label);
  return labels;
}

TEST(AxisTicks, AreRoundNumbersWithinTheRange) {
  EXPECT_THAT(labelsOf(timeTicks(0, 0.04, 6)), ElementsAre("0 s", "0.01 s", "0.02 s", "0.03 s", "0.04 s"));
  EXPECT_THAT(labelsOf(timeTicks(0, 10.2, 6)), ElementsAre("0 s", "5 s", "10 s"));
  EXPECT_THAT(labelsOf(timeTicks(0, 130, 6)), ElementsAre("0:00", "0:30", "1:00", "1:30", "2:00"));
  EXPECT_THAT(labelsOf(timeTicks(0, 3600, 4)), ElementsAre("0:00", "30:00", "1:00:00"));
  EXPECT_THAT(labelsOf(timeTicks(0, 1e6, 4)), ElementsAre("0 h", "100 h", "200 h"));
  EXPECT_THAT(labelsOf(frequencyTicks(20, 20000, 6)), ElementsAre("5000 Hz", "10000 Hz", "15000 Hz", "20000 Hz"));
  EXPECT_EQ(timeTicks(0, 1e300, 5).size(), 3U);
  for (const double end : {0.0, -1.0, std::nan(""), HUGE_VAL}) EXPECT_TRUE(timeTicks(0, end, 5).empty()) << end;
}

// Where the plots lie in the pictures.
constexpr double kWaveLeft = 66, kWaveWidth = 1100, kWaveTop = 38, kWaveHeight = 264;
constexpr double kSpectrumLeft = 76, kSpectrumWidth = 1000, kSpectrumBottom = 550, kSpectrumHeight = 512;

uint32_t pixelAt(const CGImageRef& image, int x, int y) {
  const uint8_t* const pixel = CGImageGetBytes(image) + CGImageGetBytesPerRow(image) * static_cast<size_t>(y) + size_t{4} * x;
  return static_cast<uint32_t>(pixel[2]) << 16U | static_cast<uint32_t>(pixel[1]) << 8U | pixel[0];
}

int bluenessAt(const CGImageRef& image, int x, int y) {
  const uint32_t pixel = pixelAt(image, x, y);
  return static_cast<int>(pixel & 0xff) - static_cast<int>(pixel >> 16U);
}

/// The columns that are drawn at that height, first and last; -1 where none is.
std::pair<int, int> drawnColumns(const CGImageRef& image, int y) {
  std::pair<int, int> found{-1, -1};
  for (int x = 66; x < 66 + 1100; ++x) {
    if (bluenessAt(image, x, y) < 40) continue;
    if (found.first < 0) found.first = x;
    found.second = x;
  }
  return found;
}

TEST(WaveformPicture, ShowsEveryLoudValueAtItsTime) {
  struct Row {
    size_t count, loud;
    double start, seconds, end;
  };
  const Row rows[] = {
      {10, 9, 2.5, 0.5, 30}, {1000, 777, 0, 0.01, 10}, {100'003, 54321, 3, 1e-4, 20}, {100'003, 100'002, 0, 1e-4, 0}};
  for (const Row& row : rows) {
    SCOPED_TRACE(::testing::Message() << row.loud << " of " << row.count);
    std::vector<float> levels(row.count, 1.0f);
    std::vector<int16_t> peaks(2 * row.count);
    levels[row.loud] = 0;
    peaks[2 * row.loud] = -32768;
    peaks[2 * row.loud + 1] = 32767;
    WaveformDrawing drawing;
    drawing.startSeconds = row.start;
    drawing.secondsPerValue = row.seconds;
    drawing.endSeconds = row.end;
    const double end = std::max(row.end, row.start + static_cast<double>(row.count) * row.seconds);
    const auto xOf = [&](double index) { return kWaveLeft + kWaveWidth * (row.start + index * row.seconds) / end; };
    for (const bool areLevels : {true, false}) {
      drawing.levels = areLevels ? std::span<const float>(levels) : std::span<const float>();
      drawing.peaks = peaks;
      const CGImageRef image = pictureOfWaveform(drawing);
      for (const double y : {kWaveTop + 4, kWaveTop + kWaveHeight - 4}) {
        const auto [first, last] = drawnColumns(image, static_cast<int>(y));
        EXPECT_GE(first, std::floor(xOf(static_cast<double>(row.loud)))) << areLevels;
        EXPECT_LE(last, std::ceil(xOf(static_cast<double>(row.loud) + 1))) << areLevels;
      }
      const auto [first, last] = drawnColumns(image, static_cast<int>(kWaveTop + kWaveHeight / 2));
      const double barGap = 0.1 * kWaveWidth * row.seconds / end + 1;
      EXPECT_NEAR(first, xOf(0), barGap);
      EXPECT_NEAR(last + 1, xOf(static_cast<double>(row.count)), barGap);
    }
  }
}

TEST(WaveformPicture, StandsAsHighAsTheLevelSays) {
  for (const float level : {0.0f, 0.2f, 0.5f, 0.9f}) {
    const std::vector<float> levels(5000, level);
    const CGImageRef image = pictureOfWaveform({.levels = levels, .secondsPerValue = 0.001});
    int height = 0;
    for (int y = 38; y < 38 + 264; ++y) height += bluenessAt(image, 600, y) > 80 ? 1 : 0;
    EXPECT_NEAR(height, (1 - level) * kWaveHeight, 2) << level;
  }
}

size_t countOf(const std::string& text, const std::string& part) {
  size_t count = 0;
  for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) ++count;
  return count;
}

TEST(WaveformPicture, IsWellFormedAsSvgWhateverTheTitle) {
  const std::vector<float> few{0, 0.5f, 1}, many(3000, 0.5f);
  for (const std::vector<float>& levels : {few, many, {}}) {
    const std::string svg = svgOfWaveform(
        {.title = "a<b>\"&\n\x01\xff\uffff caf\u00e9.wav", .description = "1 < 2", .levels = levels, .secondsPerValue = 0.01});
    EXPECT_EQ(countOf(svg, "<"), countOf(svg, "/>") + 2 * countOf(svg, "</")) << "every element ends";
    EXPECT_EQ(countOf(svg, "<"), countOf(svg, ">"));
    EXPECT_THAT(svg, HasSubstr(">a&lt;b&gt;\"&amp;  \ufffd\ufffd caf\u00e9.wav</text>"));
    EXPECT_THAT(svg, HasSubstr("1 &lt; 2"));
    EXPECT_THAT(svg, HasSubstr("-50 dB</text>"));
    EXPECT_LT(svg.size(), 100'000U);
  }
  const std::string svg = svgOfWaveform({.title = std::string(500, 'W'), .levels = few, .secondsPerValue = 1});
  EXPECT_THAT(svg, HasSubstr("WW\u2026</text>"));
  EXPECT_THAT(svg, Not(HasSubstr(std::string(100, 'W'))));
}

TEST(SpectrumPicture, ShowsAPowerAtItsTimeAndFrequency) {
  struct Row {
    size_t bands;
    double hop;
    int blocks, loudBlock;
    size_t loudBand;
  };
  const Row rows[] = {
      {8, 0.001, 10000, 1234, 7}, {900, 0.02, 500, 250, 100}, {20000, 0.02, 500, 499, 12345}, {513, 1.0, 10, 9, 512}};
  constexpr double kStart = 2, kMin = 1000, kMax = 21000;
  for (const Row& row : rows) {
    SCOPED_TRACE(::testing::Message() << row.bands << " bands, " << row.blocks << " blocks");
    SpectrumPicture::Setup setup;
    setup.soundStartSeconds = kStart;
    setup.soundEndSeconds = setup.endSeconds = kStart + row.hop * row.blocks;
    setup.hopSeconds = row.hop;
    setup.minFrequency = kMin;
    setup.maxFrequency = kMax;
    const double width = (kMax - kMin) / static_cast<double>(row.bands);
    for (size_t i = 0; i <= row.bands; ++i) setup.bandEdges.push_back(kMin + static_cast<double>(i) * width);
    setup.fullScaleSinePower = 4;
    SpectrumPicture picture(setup);
    for (int block = 0; block < row.blocks; ++block) {
      std::vector<float> powers(row.bands, 1e-20f);
      if (block == row.loudBlock) powers[row.loudBand] = 4;
      picture.add(powers, kStart + (block + 0.5) * row.hop);
    }
    const CGImageRef image = picture.picture();
    const auto xOf = [&](double seconds) { return kSpectrumLeft + kSpectrumWidth * seconds / setup.endSeconds; };
    const auto yOf = [&](double hertz) { return kSpectrumBottom - kSpectrumHeight * (hertz - kMin) / (kMax - kMin); };
    int found = 0;
    for (int y = 38; y < 550; ++y) {
      for (int x = 76; x < 1076; ++x) {
        const bool isLoud = pixelAt(image, x, y) == 0xfffacd, isQuiet = pixelAt(image, x, y) == 0x040616;
        ASSERT_EQ(!isLoud && !isQuiet, x + 1 <= xOf(kStart)) << x << " " << y;
        if (!isLoud) continue;
        ++found;
        const double bottom = kMin + static_cast<double>(row.loudBand) * width;
        ASSERT_GE(x, xOf(kStart + row.loudBlock * row.hop) - 1.01);
        ASSERT_LE(x, xOf(kStart + (row.loudBlock + 1) * row.hop));
        ASSERT_LE(y, yOf(bottom));
        ASSERT_GE(y, yOf(bottom + width) - 1.01);
      }
    }
    EXPECT_GE(found, std::floor(900 * row.hop / setup.endSeconds)) << "as wide as the block";
  }
}

TEST(SpectrumPicture, GetsLighterWithThePower) {
  SpectrumPicture::Setup setup;
  setup.soundEndSeconds = setup.hopSeconds = 1;
  setup.maxFrequency = 512;
  for (int i = 0; i <= 512; ++i) setup.bandEdges.push_back(i);
  SpectrumPicture picture(setup);
  std::vector<float> powers(512);
  for (size_t i = 0; i < 512; ++i) powers[i] = std::pow(10.0f, static_cast<float>(i) / 51.2f - 10);
  picture.add(powers, 0.5);
  const CGImageRef image = picture.picture();
  const auto lightAt = [&image](int y) {
    const uint32_t pixel = pixelAt(image, 500, y);
    return 0.2126 * (pixel >> 16U & 0xffU) + 0.7152 * (pixel >> 8U & 0xffU) + 0.0722 * (pixel & 0xffU);
  };
  for (int y = 46; y < 550; y += 8) EXPECT_GT(lightAt(y - 8), lightAt(y)) << y;
}

}  // namespace
}  // namespace vidloom
