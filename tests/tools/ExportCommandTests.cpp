#include <gmock/gmock.h>

#include <csignal>
#include <nlohmann/json.hpp>
#include <numeric>
#include <set>
#include <sstream>

#include "tests/tools/CommandRunner.h"
#include "vidloom/platform/foundation/NSLog.h"

namespace vidloom::testing {
namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;

std::vector<int> counting(int first, int count) {
  std::vector<int> numbers(static_cast<size_t>(count));
  std::iota(numbers.begin(), numbers.end(), first);
  return numbers;
}

/// The values that a key takes in blocks of key=value lines.
std::vector<std::string> valuesOf(const std::string& blocks, const std::string& key) {
  std::vector<std::string> values;
  std::istringstream stream(blocks);
  for (std::string line; std::getline(stream, line);) {
    if (line.rfind(key + "=", 0) == 0) values.push_back(line.substr(key.size() + 1));
  }
  return values;
}

/// A folder with a clip of 60 numbered frames and sound, and a project of it.
class ExportCommandTest : public CommandTest {
 protected:
  ExportCommandTest() {
    std::filesystem::copy(makeClip({.frameCount = 60, .sound = sine(440, 96000, 48000)}), at("clip.mp4"));
    writeProject("plain.json", R"({"id":1,"source":"clip.mp4"})");
  }
};

TEST_F(ExportCommandTest, WritesEveryFrameAndReportsHowFarItIs) {
  const CommandResult result = run("export plain.json out.mp4 --native --crf 20 --preset ultrafast");
  ASSERT_EQ(result.exitCode, 0) << result.err;
  EXPECT_EQ(result.out, "");
  EXPECT_EQ(decodedFrameIndices(at("out.mp4")), counting(0, 60));
  EXPECT_EQ(names(), (std::vector<std::string>{"clip.mp4", "out.mp4", "plain.json"}));
  std::vector<double> percents;
  for (const std::string& percent : valuesOf(result.err, "percent")) percents.push_back(std::stod(percent));
  EXPECT_TRUE(std::is_sorted(percents.begin(), percents.end()));
  EXPECT_EQ(percents.back(), 100);
  EXPECT_EQ(valuesOf(result.err, "frame").back(), "60");
  EXPECT_EQ(valuesOf(result.err, "out_time_us").back(), "2000000");
  EXPECT_EQ(valuesOf(result.err, "progress").back(), "end");
  for (const std::string key : {"fps", "speed", "eta_s", "progress"}) {
    EXPECT_EQ(valuesOf(result.err, key).size(), percents.size()) << key;
  }
  for (const std::string& phase : valuesOf(result.err, "phase")) {
    EXPECT_TRUE(std::set<std::string>({"open", "video", "audio", "finish"}).contains(phase)) << phase;
  }
}

TEST_F(ExportCommandTest, ReportsTheSameAsOneJsonObjectALineAndReplacesAFileWhenAsked) {
  write("out.mp4", "an earlier file");
  std::filesystem::create_symlink("out.mp4", at("link.mp4"));
  const CommandResult result = run("export plain.json link.mp4 -y --preset ultrafast --progress json");
  ASSERT_EQ(result.exitCode, 0) << result.err;
  EXPECT_TRUE(std::filesystem::is_symlink(at("link.mp4")));
  EXPECT_EQ(decodedFrameIndices(at("out.mp4")).size(), 60U);
  std::istringstream stream(result.err);
  nlohmann::json last;
  for (std::string line; std::getline(stream, line);) {
    last = nlohmann::json::parse(line);
    for (const std::string key : {"fps", "speed", "eta_s", "phase"}) EXPECT_TRUE(last.contains(key)) << line;
  }
  EXPECT_EQ(last["progress"], "end");
  EXPECT_EQ(last["percent"], 100.0);
  EXPECT_EQ(last["frame"], 60);
  EXPECT_EQ(last["out_time_us"], 2'000'000);
}

TEST_F(ExportCommandTest, WritesOnlyTheAskedRangeFromZeroOn) {
  std::filesystem::create_symlink("out.mp4", at("link.mp4"));  // to a file that is not there yet
  const CommandResult result = run("export plain.json link.mp4 -y --range 1/2,0.4 --progress none");
  EXPECT_EQ(result.exitCode, 0);
  EXPECT_EQ(result.err, "");
  EXPECT_EQ(decodedFrameIndices(at("out.mp4")), counting(15, 12));
}

TEST_F(ExportCommandTest, SaysWhatIsWrongByItsExitCodeAndLeavesEverythingAsItWas) {
  write("broken.json", "{");
  write("text.mp4", "this is no movie");
  write("there.mp4", "an earlier file");
  std::filesystem::create_directory(at("folder"));
  std::filesystem::copy(makeClip({.frameCount = 0, .sound = sine(440, 48000, 48000)}), at("sound.mp4"));
  writeProject("empty.json", "");
  writeProject("gone.json", R"({"id":1,"source":"gone.mp4"})");
  writeProject("text.json", R"({"id":1,"source":"text.mp4"})");
  writeProject("trimmed.json", R"({"id":1,"source":"clip.mp4","leftTrim":1,"rightTrim":1})");
  writeProject("sound.json", R"({"id":1,"source":"sound.mp4"})");
  std::string longName = "export plain.json ";
  longName.append(256, 'n');
  expectRefusals({
      {"", 2, {}},
      {"export", 2, {"PROJECT"}},
      {"export plain.json", 2, {"OUT"}},
      {"export plain.json o.mp4 --crf 52", 2, {"--crf"}},
      {"export plain.json o.mp4 --preset quick", 2, {"--preset"}},
      {"export plain.json o.mp4 --threads 0", 2, {"--threads"}},
      {"export plain.json o.mp4 --exporter linear", 2, {"--exporter"}},
      {"export plain.json o.mp4 --progress dots", 2, {"--progress"}},
      {"export plain.json o.mp4 --range 1", 2, {"--range", "START,DURATION"}},
      {"export plain.json o.mp4 --range -1,1", 2, {"--range"}},
      {"export plain.json o.mp4 --range 0,0", 2, {"--range", "zero"}},
      {"export plain.json o.mp4 --range 2,1", 2, {"--range"}},
      {"export none.json o.mp4", 3, {"none.json"}},
      {"export broken.json o.mp4", 3, {"broken.json", "JSON"}},
      {"export empty.json o.mp4", 3, {"nothing to show"}},
      {"export sound.json o.mp4", 3, {"nothing to show"}},
      {"export gone.json o.mp4", 3, {"/instructions/0/tracks/0/source", "gone.mp4"}},
      {"export text.json o.mp4", 3, {"/instructions/0/tracks/0", "text.mp4"}},
      {"export trimmed.json o.mp4", 3, {"/instructions/0/tracks/0", "trims leave nothing", "clip.mp4"}},
      {"export plain.json there.mp4", 4, {"there.mp4", "-y"}},
      {"export plain.json none/o.mp4", 4, {"none/o.mp4", "folder"}},
      {"export plain.json folder -y", 4, {"folder"}},
      {"export plain.json clip.mp4 -y", 4, {"clip.mp4", "source"}},
      {"export plain.json ./plain.json -y", 4, {"plain.json"}},
      {"export plain.json /dev/null -y", 4, {"/dev/null"}},
      {longName, 4, {"nnn: File name too long"}},
  });
  EXPECT_EQ(read("there.mp4"), "an earlier file");
}

TEST_F(ExportCommandTest, LeavesNothingWhenItIsInterrupted) {
  // The same clip forty times: far more than is done before the signal comes.
  std::string tracks;
  for (int i = 0; i < 40; ++i) {
    tracks += NSStringWithFormat(R"(%s{"id":%d,"source":"clip.mp4","start":%d})", i > 0 ? "," : "", i, 2 * i);
  }
  writeProject("long.json", tracks, "640,360");
  const auto before = names();
  const std::pair<int, std::string> moments[] = {{SIGINT, "phase=open"}, {SIGINT, "phase=video"}, {SIGTERM, "phase=video"}};
  for (const auto& [number, moment] : moments) {
    RunningCommand command("export long.json out.mp4 --preset medium", folder_);
    ASSERT_TRUE(command.waitFor(moment));
    command.signal(number);
    EXPECT_EQ(command.wait().exitCode, 6) << moment;
    EXPECT_EQ(names(), before) << moment;
  }
}

TEST_F(ExportCommandTest, TellsAFileSizeLimitAsAnErrorOfTheOutput) {
  const auto before = names();
  const CommandResult result = run("export plain.json out.mp4 --crf 0", 20'000);
  EXPECT_EQ(result.exitCode, 4);
  EXPECT_THAT(result.err, AllOf(HasSubstr("out.mp4"), HasSubstr("too large")));
  EXPECT_EQ(valuesOf(result.err, "progress").back(), "end");
  EXPECT_EQ(names(), before);
}

}  // namespace
}  // namespace vidloom::testing
