#include <gmock/gmock.h>

#include <algorithm>
#include <cmath>
#include <csignal>
#include <nlohmann/json.hpp>
#include <numbers>
#include <random>

#include "tests/support/MovieProbe.h"
#include "tests/tools/CommandRunner.h"

namespace vidloom::testing {
namespace {

using nlohmann::json;
using ::testing::HasSubstr;
using ::testing::StartsWith;
using Samples = std::vector<int16_t>;

class SoundCommandsTest : public CommandTest {
 protected:
  json dataOf(const std::string& arguments) const {
    const CommandResult result = run(arguments);
    EXPECT_EQ(result.exitCode, 0) << result.err;
    return json::parse(result.out);
  }
  void addWav(const std::string& name, int sampleRate, int channels, const Samples& samples) const {
    std::filesystem::copy(writeWav(name, sampleRate, channels, samples), at(name));
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
};

TEST_F(SoundCommandsTest, LevelsAreWhatTheAnalyzerGave) {
  Samples samples(800, 32767);
  std::fill(samples.begin() + 200, samples.begin() + 400, int16_t{0});
  for (size_t i = 400; i < 600; i += 2) samples[i] = 0;
  std::fill(samples.begin() + 600, samples.end(), int16_t{1000});
  addWav("levels.wav", 8000, 2, samples);
  const std::string expected = R"({"count":4,"samplesPerValue":200,"values":[0,1,0.5,0.60617)";
  EXPECT_THAT(run("waveform levels.wav --count 4").out, StartsWith(expected));
  ASSERT_EQ(run("waveform levels.wav --count 4 -o levels.json").exitCode, 0);
  EXPECT_THAT(read("levels.json"), StartsWith(expected));
  EXPECT_LT(read("levels.json").size(), expected.size() + 8) << "no more digits than a float has";
  for (const std::string count : {"0", "-7", "99999999"}) {
    EXPECT_EQ(dataOf("waveform levels.wav --count " + count)["values"].size(), 800U) << count;
  }
}

TEST_F(SoundCommandsTest, PeaksAreTheEndsOfEveryPixelInTextAndBinary) {
  addWav("sound.wav", 22050, 2, {-32768, -32768, 32767, 32767, 0, 1, -300, -301, 511, 0});
  const auto littleEndian = [](const std::vector<int>& values, int size) {
    std::string bytes;
    for (const int value : values) {
      for (int byte = 0; byte < size; ++byte) bytes += static_cast<char>(value >> 8 * byte);
    }
    return bytes;
  };
  for (const int bits : {8, 16}) {
    const std::vector<int> peaks = bits == 8 ? std::vector{-128, 127, -2, 0} : std::vector{-32768, 32767, -300, 255};
    const std::string command = "waveform sound.wav --count 2 --format peaks --bits " + std::to_string(bits);
    const json expected = {{"version", 2}, {"channels", 1}, {"sample_rate", 22050}, {"samples_per_pixel", 3},
                           {"bits", bits}, {"length", 2},   {"data", peaks}};
    EXPECT_EQ(dataOf(command), expected);
    ASSERT_EQ(run(command + " -o sound.dat").exitCode, 0);
    EXPECT_EQ(read("sound.dat"), littleEndian({2, bits == 8, 22050, 3, 2, 1}, 4) + littleEndian(peaks, bits / 8));
  }
}

TEST_F(SoundCommandsTest, SpectraShowAClickWhenItIsAndASweepWhereItIs) {
  Samples click(size_t{5} * 44100);
  click[click.size() / 5 * 2] = 32767;
  addWav("click.wav", 44100, 1, click);
  const json clicks = dataOf("spectrum click.wav --size 512 --hop 64 --window hamming");
  std::map<double, double> timesByPower;
  for (size_t block = 0; block < clicks["times"].size(); ++block) {
    const auto powers = clicks["magnitudes"][block].get<std::vector<double>>();
    timesByPower[std::accumulate(powers.begin(), powers.end(), 0.0)] = clicks["times"][block];
  }
  EXPECT_NEAR(timesByPower.rbegin()->second + 256 / 44100.0, 2, 64 / 44100.0);
  addTone("sweep.wav", 44100, 10, 0.9, [](double t) { return 1000 * t * t; });  // 2000 Hz a second
  const json spectrum = dataOf("spectrum sweep.wav --bands 200 --min 0");
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
    const json spectrum = dataOf("spectrum tone.wav --size 1024 --hop 512 --bands 512 --min 0 --max 24000 --window " + window);
    const std::pair<const char*, int> values[] = {{"sampleRate", 48000}, {"channels", 1}, {"size", 1024}, {"hop", 512}};
    for (const auto& [key, value] : values) EXPECT_EQ(spectrum[key], value) << key;
    EXPECT_EQ(spectrum["window"], window);
    EXPECT_EQ(spectrum["times"][3], 0.032);
    const double share = spectrum["magnitudes"][10][64].get<double>() / spectrum["fullScaleSinePower"].get<double>();
    EXPECT_NEAR(10 * std::log10(share), -6.02, 0.01) << window;
  }
}

TEST_F(SoundCommandsTest, DrawsPictures) {
  addTone("tone.wav", 8000, 1, 0.5, [](double t) { return 300 * t; });
  const std::pair<std::string, int> rows[] = {{"waveform tone.wav --count 50", 1200},
                                              {"waveform tone.wav --count 5000 --format peaks", 1200},
                                              {"spectrum tone.wav", 1180},
                                              {"spectrum tone.wav --bands 20 --min 3999 --max 9000", 1180}};
  for (const auto& [command, width] : rows) {
    ASSERT_EQ(run(command + " -o out.png").exitCode, 0) << command;
    EXPECT_EQ(MovieProbe(at("out.png")).number("v:0", "width"), width) << command;
  }
  ASSERT_EQ(run("waveform tone.wav --count 50 -o out.svg").exitCode, 0);
  for (const std::string text : {">tone.wav</text>", ">8000 Hz, 1 channel; 50 levels of 20 ms</text>", ">0.5 s</text>"}) {
    EXPECT_THAT(read("out.svg"), HasSubstr(text));
  }
}

TEST_F(SoundCommandsTest, RefuseWithTheRightExitCode) {
  addWav("sound.json", 8000, 1, Samples(8000, 5));
  std::filesystem::copy(makeClip({.frameCount = 2}), at("silent.mp4"));
  write("text.wav", "this is no sound");
  expectRefusals({
      {"waveform sound.json", 2, {"--count is required"}},
      {"waveform sound.json --count 10 -o out.dat", 2, {"-o: a .dat file needs --format peaks"}},
      {"waveform sound.json --count 10 -o out.jpg", 2, {"-o: must end in"}},
      {"waveform sound.json --count 10 --bits 8", 2, {"--bits: needs --format peaks"}},
      {"waveform sound.json --count 10 --format peaks --bits 12", 2, {"--bits"}},
      {"spectrum sound.json --size 1000", 2, {"--size: must be a power of two"}},
      {"spectrum sound.json --size 131072", 2, {"--size"}},
      {"spectrum sound.json --hop 0", 2, {"--hop"}},
      {"spectrum sound.json --bands 0", 2, {"--bands"}},
      {"spectrum sound.json --window flat", 2, {"--window"}},
      {"spectrum sound.json --min nan", 2, {"--min: must be a number"}},
      {"spectrum sound.json --min 300 --max 300", 2, {"--max: must be"}},
      {"spectrum sound.json -o out.svg", 2, {"-o: must end in"}},
      {"waveform gone.wav --count 1", 3, {"gone.wav"}},
      {"waveform text.wav --count 1 --format peaks", 3, {"text.wav"}},
      {"waveform silent.mp4 --count 1", 3, {"silent.mp4: has no audio track"}},
      {"waveform silent.mp4 --count 1 --format peaks", 3, {"silent.mp4: has no audio track"}},
      {"spectrum silent.mp4", 3, {"silent.mp4: has no audio track"}},
      {"spectrum sound.json --min 4000", 3, {"sound.json: has 8000 Hz, so nothing above 4000 Hz"}},
      {"spectrum sound.json -o none/out.png", 4, {"the folder none does not exist"}},
      {"spectrum sound.json -o sound.json", 4, {"is the media file itself"}},
  });
}

TEST_F(SoundCommandsTest, AFileThatCannotBeWrittenStaysAsItWas) {
  std::mt19937 random(3);
  Samples samples(100'000);
  for (int16_t& sample : samples) sample = static_cast<int16_t>(random());
  addWav("noise.wav", 8000, 1, samples);
  const std::pair<std::string, std::string> rows[] = {{"waveform noise.wav --count 100000", "out.json"},
                                                      {"waveform noise.wav --count 100000", "out.svg"},
                                                      {"waveform noise.wav --count 100000", "out.png"},
                                                      {"waveform noise.wav --count 100000 --format peaks", "out.dat"},
                                                      {"spectrum noise.wav", "out.json"},
                                                      {"spectrum noise.wav", "out.png"}};
  for (const auto& [command, output] : rows) {
    write(output, "before");
    const auto before = names();
    constexpr uint64_t kLimitBytes = 2000;
    const CommandResult result = run(command + " -o " + output, kLimitBytes);
    EXPECT_EQ(result.exitCode, 4) << result.err;
    EXPECT_THAT(result.err, HasSubstr(output));
    EXPECT_EQ(read(output), "before");
    EXPECT_EQ(names(), before);
    EXPECT_EQ(run(command + " -o " + output).exitCode, 0);
    EXPECT_GT(read(output).size(), kLimitBytes);
  }
}

TEST_F(SoundCommandsTest, EndAtOnceWhenCancelled) {
  addWav("long.wav", 48000, 1, Samples(size_t{60} * 48000, 1000));
  for (const std::string command : {"spectrum long.wav --bands 1000", "waveform long.wav --count 0 --format peaks"}) {
    RunningCommand running(command, folder_);
    ASSERT_TRUE(running.waitFor("{"));
    running.signal(SIGINT);
    EXPECT_EQ(running.wait().exitCode, 6);
  }
}

}  // namespace
}  // namespace vidloom::testing
