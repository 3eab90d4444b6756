#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <csignal>
#include <nlohmann/json.hpp>
#include <numbers>
#include <random>

#include "tests/support/Fixtures.h"
#include "tests/tools/CommandRunner.h"
#include "vidloom/platform/coregraphics/CGImage.h"

namespace vidloom::testing {
namespace {

using nlohmann::json;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using Samples = std::vector<int16_t>;

class SoundCommandsTest : public ::testing::Test {
 protected:
  CommandResult run(const std::vector<std::string>& arguments, uint64_t fileSizeLimit = 0) const {
    return runCommand(arguments, folder_.path(), fileSizeLimit);
  }
  json dataOf(const std::vector<std::string>& arguments) const {
    const CommandResult result = run(arguments);
    EXPECT_EQ(result.exitCode, 0) << result.err;
    EXPECT_EQ(result.err, "");
    return json::parse(result.out);
  }
  void addWav(const std::string& name, int sampleRate, int channels, const Samples& samples) const {
    folder_.put(writeWav(name, sampleRate, channels, samples), name);
  }
  /// `phaseAt` gives the phase in turns at a time in seconds.
  template <class Phase>
  void addTone(const std::string& name, int sampleRate, double seconds, double amplitude, const Phase& phaseAt) const {
    Samples samples(static_cast<size_t>(sampleRate * seconds));
    for (size_t i = 0; i < samples.size(); ++i) {
      const double turns = phaseAt(static_cast<double>(i) / sampleRate);
      samples[i] = static_cast<int16_t>(std::lround(amplitude * 32767 * std::sin(2 * std::numbers::pi * turns)));
    }
    addWav(name, sampleRate, 1, samples);
  }

  TemporaryFolder folder_;
};

TEST_F(SoundCommandsTest, LevelsAreWhatTheAnalyzerGave) {
  Samples samples(800, 32767);
  std::fill(samples.begin() + 200, samples.begin() + 400, int16_t{0});
  for (size_t i = 400; i < 600; i += 2) samples[i] = 0;
  std::fill(samples.begin() + 600, samples.end(), int16_t{1000});
  addWav("levels.wav", 8000, 2, samples);
  const std::string expected = R"({"count":4,"samplesPerValue":200,"values":[0,1,0.5,0.60617)";
  EXPECT_THAT(run({"waveform", "levels.wav", "--count", "4"}).out, ::testing::StartsWith(expected));
  ASSERT_EQ(run({"waveform", "levels.wav", "--count", "4", "-o", "levels.json"}).exitCode, 0);
  const std::string text = folder_.read("levels.json");
  EXPECT_THAT(text, ::testing::StartsWith(expected));
  EXPECT_LT(text.size(), expected.size() + 8);  // no more digits than a float has
  EXPECT_NEAR(json::parse(text)["values"][3].get<double>(), 0.606175, 2e-6);
  EXPECT_EQ(dataOf({"waveform", "levels.wav", "--count", "0"})["values"].size(), 800U);
  EXPECT_EQ(dataOf({"waveform", "levels.wav", "--count", "-7"})["values"].size(), 800U);
  EXPECT_EQ(dataOf({"waveform", "levels.wav", "--count", "99999999"})["values"].size(), 800U);
}

std::vector<int64_t> fieldsOf(const std::string& bytes, size_t from, size_t count, size_t size) {
  std::vector<int64_t> fields;
  for (size_t i = 0; i < count && from + (i + 1) * size <= bytes.size(); ++i) {
    int64_t value = 0, range = 1;
    for (size_t byte = 0; byte < size; ++byte, range *= 256) value += range * static_cast<uint8_t>(bytes[from + i * size + byte]);
    fields.push_back(value < range / 2 ? value : value - range);
  }
  return fields;
}

TEST_F(SoundCommandsTest, PeaksAreTheEndsOfEveryPixelInTextAndBinary) {
  std::mt19937 random(3);
  std::uniform_int_distribution<int> any(-32768, 32767);
  Samples samples(size_t{2} * 10'007);
  for (int16_t& sample : samples) sample = static_cast<int16_t>(any(random));
  samples[0] = samples[1] = -32768;
  samples[2] = samples[3] = 32767;
  addWav("noise.wav", 22050, 2, samples);
  constexpr size_t kFramesPerPixel = 101, kPixels = 100;  // the last one has 8
  for (const int bits : {8, 16}) {
    std::vector<int64_t> expected;
    for (size_t pixel = 0; pixel < kPixels; ++pixel) {
      int lowest = 32767, highest = -32768;
      for (size_t i = pixel * kFramesPerPixel; i < std::min<size_t>(10'007, (pixel + 1) * kFramesPerPixel); ++i) {
        lowest = std::min(lowest, (samples[2 * i] + samples[2 * i + 1]) / 2);
        highest = std::max(highest, (samples[2 * i] + samples[2 * i + 1]) / 2);
      }
      const double divisor = bits == 8 ? 256 : 1;
      expected.push_back(static_cast<int64_t>(std::floor(lowest / divisor)));
      expected.push_back(static_cast<int64_t>(std::floor(highest / divisor)));
    }
    EXPECT_THAT((std::vector<int64_t>{expected[0], expected[1]}), bits == 8 ? ElementsAre(-128, 127) : ElementsAre(-32768, 32767));
    const std::vector<std::string> command = {"waveform", "noise.wav", "--count", "100",
                                              "--format", "peaks",     "--bits",  std::to_string(bits)};
    const json data = dataOf(command);
    EXPECT_EQ(data["data"].get<std::vector<int64_t>>(), expected);
    const json head = {{"version", 2}, {"channels", 1}, {"sample_rate", 22050}, {"samples_per_pixel", 101},
                       {"bits", bits}, {"length", 100}, {"data", data["data"]}};
    EXPECT_EQ(data, head);
    auto binary = command;
    binary.insert(binary.end(), {"-o", "noise.dat"});
    ASSERT_EQ(run(binary).exitCode, 0);
    const std::string bytes = folder_.read("noise.dat");
    EXPECT_THAT(fieldsOf(bytes, 0, 6, 4), ElementsAre(2, bits == 8 ? 1 : 0, 22050, 101, 100, 1));
    EXPECT_EQ(fieldsOf(bytes, 24, 200, static_cast<size_t>(bits) / 8), expected);
    EXPECT_EQ(bytes.size(), 24U + 200 * static_cast<size_t>(bits) / 8);
  }
}

/// The block with the largest power of all bands together, by where it begins.
double loudestTime(const json& spectrum) {
  double loudest = -1, time = -1;
  for (size_t block = 0; block < spectrum["magnitudes"].size(); ++block) {
    double sum = 0;
    for (const json& power : spectrum["magnitudes"][block]) sum += power.get<double>();
    if (sum <= loudest) continue;
    loudest = sum;
    time = spectrum["times"][block];
  }
  return time;
}

TEST_F(SoundCommandsTest, SpectraShowAClickWhenItIsAndASweepWhereItIs) {
  Samples click(size_t{5} * 44100);
  click[click.size() / 5 * 2] = 32767;
  addWav("click.wav", 44100, 1, click);
  for (const std::string window : {"hanning", "hamming"}) {
    const json spectrum = dataOf({"spectrum", "click.wav", "--size", "512", "--hop", "64", "--window", window});
    EXPECT_NEAR(loudestTime(spectrum) + 256 / 44100.0, 2, 64 / 44100.0) << window;
  }
  addTone("sweep.wav", 44100, 10, 0.9, [](double t) { return 1000 * t * t; });  // 2000 Hz a second
  const json spectrum = dataOf({"spectrum", "sweep.wav", "--bands", "200", "--min", "0"});
  EXPECT_EQ(spectrum["frequencies"].size(), 200U);
  EXPECT_EQ(spectrum["times"].size(), 430U);
  EXPECT_EQ(spectrum["magnitudes"].size(), 430U);
  for (size_t block = 0; block < 420; block += 7) {
    const json& powers = spectrum["magnitudes"][block];
    const auto peak = static_cast<size_t>(std::max_element(powers.begin(), powers.end()) - powers.begin());
    const double middle = spectrum["times"][block].get<double>() + 1024 / 44100.0;
    EXPECT_NEAR(spectrum["frequencies"][peak].get<double>(), 2000 * middle, 110) << block;
  }
}

TEST_F(SoundCommandsTest, SpectraSayWhatAFullScaleSineHas) {
  addTone("tone.wav", 48000, 1, 0.5, [](double t) { return 3000 * t; });  // bin 64 of 1024
  for (const std::string window : {"none", "hanning", "hamming"}) {
    const json spectrum = dataOf({"spectrum", "tone.wav", "--size", "1024", "--hop", "512", "--window", window, "--bands", "512",
                                  "--min", "0", "--max", "24000"});
    EXPECT_EQ(spectrum["window"], window);
    EXPECT_EQ(spectrum["sampleRate"], 48000);
    EXPECT_EQ(spectrum["channels"], 1);
    EXPECT_EQ(spectrum["size"], 1024);
    EXPECT_EQ(spectrum["hop"], 512);
    EXPECT_EQ(spectrum["times"][3], 0.032);
    const double share = spectrum["magnitudes"][10][64].get<double>() / spectrum["fullScaleSinePower"].get<double>();
    EXPECT_NEAR(10 * std::log10(share), -6.02, 0.01) << window;
  }
}

TEST_F(SoundCommandsTest, DrawsPictures) {
  addTone("tone.wav", 8000, 1, 0.5, [](double t) { return 300 * t; });
  struct Row {
    std::vector<std::string> command;
    size_t width, height;
  };
  const Row rows[] = {{{"waveform", "tone.wav", "--count", "50"}, 1200, 340},
                      {{"waveform", "tone.wav", "--count", "5000", "--format", "peaks"}, 1200, 340},
                      {{"spectrum", "tone.wav"}, 1180, 630},
                      {{"spectrum", "tone.wav", "--bands", "20", "--min", "3999", "--max", "9000"}, 1180, 630}};
  for (Row row : rows) {
    row.command.insert(row.command.end(), {"-o", "out.png"});
    const CommandResult result = run(row.command);
    ASSERT_EQ(result.exitCode, 0) << result.err;
    std::optional<NSError> error;
    const CGImageRef image = CGImageCreateWithContentsOfURL(folder_.path() / "out.png", &error);
    ASSERT_TRUE(image) << *error;
    EXPECT_EQ(CGImageGetWidth(image), row.width);
    EXPECT_EQ(CGImageGetHeight(image), row.height);
  }
  ASSERT_EQ(run({"waveform", "tone.wav", "--count", "50", "-o", "out.svg"}).exitCode, 0);
  for (const std::string text : {">tone.wav</text>", ">8000 Hz, 1 channel; 50 levels of 20 ms</text>", ">0.5 s</text>"}) {
    EXPECT_THAT(folder_.read("out.svg"), HasSubstr(text));
  }
}

TEST_F(SoundCommandsTest, RefuseWithTheRightExitCode) {
  addWav("sound.wav", 8000, 1, Samples(8000, 5));
  folder_.put(makeClip({.frameCount = 2}), "silent.mp4");
  folder_.write("text.wav", "this is no sound");
  const std::vector<std::string> waveform = {"waveform", "sound.wav", "--count", "10"}, spectrum = {"spectrum", "sound.wav"};
  struct Row {
    std::vector<std::string> start, more;
    int exitCode;
    std::string text;
  };
  const Row rows[] = {
      {{"waveform", "sound.wav"}, {}, 2, "--count is required"},
      {waveform, {"-o", "out.dat"}, 2, "-o: a .dat file needs --format peaks"},
      {waveform, {"-o", "out.jpg"}, 2, "-o: must end in"},
      {waveform, {"--bits", "8"}, 2, "--bits: needs --format peaks"},
      {waveform, {"--format", "peaks", "--bits", "12"}, 2, "--bits"},
      {spectrum, {"--size", "1000"}, 2, "--size: must be a power of two"},
      {spectrum, {"--size", "131072"}, 2, "--size"},
      {spectrum, {"--hop", "0"}, 2, "--hop"},
      {spectrum, {"--bands", "0"}, 2, "--bands"},
      {spectrum, {"--window", "flat"}, 2, "--window"},
      {spectrum, {"--min", "nan"}, 2, "--min: must be a number"},
      {spectrum, {"--min", "300", "--max", "300"}, 2, "--max: must be"},
      {spectrum, {"-o", "out.svg"}, 2, "-o: must end in"},
      {{"waveform", "gone.wav", "--count", "1"}, {}, 3, "gone.wav"},
      {{"waveform", "text.wav", "--count", "1", "--format", "peaks"}, {}, 3, "text.wav"},
      {{"waveform", "silent.mp4", "--count", "1"}, {}, 3, "silent.mp4: has no audio track"},
      {{"waveform", "silent.mp4", "--count", "1", "--format", "peaks"}, {}, 3, "silent.mp4: has no audio track"},
      {{"spectrum", "silent.mp4"}, {}, 3, "silent.mp4: has no audio track"},
      {spectrum, {"--min", "4000"}, 3, "sound.wav: has 8000 Hz, so nothing above 4000 Hz"},
      {waveform, {"-o", "none/out.json"}, 4, "the folder none does not exist"},
      {spectrum, {"-o", "none/out.png"}, 4, "the folder none does not exist"},
  };
  for (const Row& row : rows) {
    std::vector<std::string> arguments = row.start;
    arguments.insert(arguments.end(), row.more.begin(), row.more.end());
    const CommandResult result = run(arguments);
    EXPECT_EQ(result.exitCode, row.exitCode) << row.text;
    EXPECT_THAT(result.err, HasSubstr(row.text));
    EXPECT_EQ(result.out, "");
  }
  EXPECT_THAT(folder_.names(), ElementsAre("silent.mp4", "sound.wav", "text.wav"));
}

TEST_F(SoundCommandsTest, AFileThatCannotBeWrittenStaysAsItWas) {
  std::mt19937 random(3);
  Samples samples(100'000);
  for (int16_t& sample : samples) sample = static_cast<int16_t>(random());
  addWav("noise.wav", 8000, 1, samples);
  const std::vector<std::vector<std::string>> commands = {
      {"waveform", "noise.wav", "--count", "100000", "-o", "out.json"},
      {"waveform", "noise.wav", "--count", "100000", "-o", "out.svg"},
      {"waveform", "noise.wav", "--count", "100000", "-o", "out.png"},
      {"waveform", "noise.wav", "--count", "100000", "--format", "peaks", "-o", "out.dat"},
      {"spectrum", "noise.wav", "-o", "out.json"},
      {"spectrum", "noise.wav", "-o", "out.png"}};
  for (const auto& command : commands) {
    const std::string& output = command.back();
    folder_.write(output, "before");
    constexpr uint64_t kLimitBytes = 2000;
    const CommandResult result = run(command, kLimitBytes);
    EXPECT_EQ(result.exitCode, 4) << result.err;
    EXPECT_THAT(result.err, HasSubstr(output));
    EXPECT_EQ(folder_.read(output), "before");
    EXPECT_EQ(run(command).exitCode, 0);
    EXPECT_GT(folder_.read(output).size(), kLimitBytes);
    std::filesystem::remove(folder_.path() / output);
    EXPECT_THAT(folder_.names(), ElementsAre("noise.wav"));
  }
  addWav("sound.json", 8000, 1, samples);
  EXPECT_THAT(run({"spectrum", "sound.json", "-o", "sound.json"}).err, HasSubstr("is the media file itself"));
}

TEST_F(SoundCommandsTest, EndAtOnceWhenCancelled) {
  addWav("long.wav", 48000, 1, Samples(size_t{60} * 48000, 1000));
  for (const std::vector<std::string>& command : {std::vector<std::string>{"spectrum", "long.wav", "--bands", "1000"},
                                                  {"waveform", "long.wav", "--count", "0", "--format", "peaks"}}) {
    RunningCommand running(command, folder_.path());
    ASSERT_TRUE(running.waitForOutput());
    running.signal(SIGINT);
    EXPECT_EQ(running.wait().exitCode, 6);
  }
}

}  // namespace
}  // namespace vidloom::testing
