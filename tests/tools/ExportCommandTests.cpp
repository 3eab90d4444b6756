#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <numeric>
#include <set>
#include <sstream>
#include <string>

#include "tests/support/Fixtures.h"
#include "tests/tools/CommandRunner.h"
#include "vidloom/platform/foundation/NSLog.h"

namespace vidloom::testing {
namespace {

namespace fs = std::filesystem;
using ::testing::AllOf;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsSupersetOf;
using ::testing::Not;

std::string project(const std::string& tracks, const std::string& size = "320,180") {
  return R"({"vidloom":1,"renderSize":[)" + size + R"(],"fps":30,"instructions":[{"id":1,"tracks":[)" + tracks + "]}]}";
}

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

/// A folder with a clip of 60 numbered frames and sound, and projects around it.
class ExportCommandTest : public ::testing::Test {
 protected:
  ExportCommandTest() {
    ClipSpec spec;
    spec.frameCount = 60;
    spec.sound = sine(440, 96000, 48000);
    folder_.put(makeClip(spec), "clip.mp4");
    folder_.write("plain.json", project(R"({"id":1,"source":"clip.mp4"})"));
  }
  CommandResult run(const std::vector<std::string>& arguments) const { return runCommand(arguments, folder_.path()); }
  fs::path at(const std::string& name) const { return folder_.path() / name; }

  TemporaryFolder folder_;
};

TEST_F(ExportCommandTest, WritesEveryFrameAndReportsHowFarItIs) {
  const CommandResult result = run({"export", "plain.json", "out.mp4", "--native", "--crf", "20", "--preset", "ultrafast"});
  ASSERT_EQ(result.exitCode, 0) << result.err;
  EXPECT_EQ(result.out, "");
  EXPECT_EQ(decodedFrameIndices(at("out.mp4")), counting(0, 60));
  EXPECT_EQ(folder_.names(), (std::vector<std::string>{"clip.mp4", "out.mp4", "plain.json"}));

  const auto percents = valuesOf(result.err, "percent");
  ASSERT_FALSE(percents.empty());
  double last = 0;
  for (const std::string& percent : percents) {
    EXPECT_GE(std::stod(percent), last);
    last = std::stod(percent);
  }
  EXPECT_EQ(last, 100);
  EXPECT_EQ(valuesOf(result.err, "frame").back(), "60");
  EXPECT_EQ(valuesOf(result.err, "out_time_us").back(), "2000000");
  const auto states = valuesOf(result.err, "progress");
  EXPECT_EQ(states.back(), "end");
  EXPECT_EQ(std::count(states.begin(), states.end(), "end"), 1);
  for (const std::string key : {"fps", "speed", "eta_s", "phase"})
    EXPECT_EQ(valuesOf(result.err, key).size(), states.size()) << key;
  for (const std::string& phase : valuesOf(result.err, "phase")) {
    EXPECT_TRUE(std::set<std::string>({"open", "video", "audio", "finish"}).contains(phase)) << phase;
  }
}

TEST_F(ExportCommandTest, ReportsTheSameAsOneJsonObjectALine) {
  const CommandResult result = run({"export", "plain.json", "out.mp4", "--preset", "ultrafast", "--progress", "json"});
  ASSERT_EQ(result.exitCode, 0) << result.err;
  std::istringstream stream(result.err);
  nlohmann::json last;
  for (std::string line; std::getline(stream, line);) {
    last = nlohmann::json::parse(line);
    for (const std::string key : {"frame", "fps", "out_time_us", "speed", "percent", "eta_s", "phase", "progress"}) {
      EXPECT_TRUE(last.contains(key)) << line;
    }
  }
  EXPECT_EQ(last["progress"], "end");
  EXPECT_EQ(last["percent"], 100.0);
  EXPECT_EQ(last["frame"], 60);
  EXPECT_EQ(last["out_time_us"], 2'000'000);
}

TEST_F(ExportCommandTest, WritesOnlyTheAskedRangeFromZeroOn) {
  const CommandResult result = run({"export", "plain.json", "out.mp4", "--range", "1/2,0.4", "--progress", "none"});
  ASSERT_EQ(result.exitCode, 0) << result.err;
  EXPECT_EQ(result.err, "");
  EXPECT_EQ(decodedFrameIndices(at("out.mp4")), counting(15, 12));
}

TEST_F(ExportCommandTest, SaysWhatIsWrongByItsExitCodeAndLeavesEverythingAsItWas) {
  folder_.write("empty.json", R"({"vidloom":1,"renderSize":[320,180],"fps":30,"instructions":[]})");
  folder_.write("broken.json", "{");
  folder_.write("gone.json", project(R"({"id":1,"source":"gone.mp4"})"));
  folder_.write("text.mp4", "this is no movie");
  folder_.write("text.json", project(R"({"id":1,"source":"text.mp4"})"));
  folder_.write("trimmed.json", project(R"({"id":1,"source":"clip.mp4","leftTrim":1,"rightTrim":1})"));
  folder_.write("there.mp4", "an earlier file");
  fs::create_directory(at("folder"));
  ClipSpec soundOnly;
  soundOnly.frameCount = 0;
  soundOnly.sound = sine(440, 48000, 48000);
  folder_.put(makeClip(soundOnly), "sound.mp4");
  folder_.write("sound.json", project(R"({"id":1,"source":"sound.mp4"})"));
  const auto before = folder_.names();

  struct Row {
    std::vector<std::string> arguments;
    int exitCode;
    std::vector<std::string> words;  ///< of the message
  };
  const Row rows[] = {
      {{}, 2, {}},
      {{"export"}, 2, {"PROJECT"}},
      {{"export", "plain.json"}, 2, {"OUT"}},
      {{"export", "plain.json", "o.mp4", "--crf", "52"}, 2, {"--crf"}},
      {{"export", "plain.json", "o.mp4", "--preset", "quick"}, 2, {"--preset"}},
      {{"export", "plain.json", "o.mp4", "--threads", "0"}, 2, {"--threads"}},
      {{"export", "plain.json", "o.mp4", "--exporter", "linear"}, 2, {"--exporter"}},
      {{"export", "plain.json", "o.mp4", "--progress", "dots"}, 2, {"--progress"}},
      {{"export", "plain.json", "o.mp4", "--range", "1"}, 2, {"--range", "START,DURATION"}},
      {{"export", "plain.json", "o.mp4", "--range", "-1,1"}, 2, {"--range"}},
      {{"export", "plain.json", "o.mp4", "--range", "0,0"}, 2, {"--range", "zero"}},
      {{"export", "plain.json", "o.mp4", "--range", "2,1"}, 2, {"--range"}},
      {{"export", "plain.json", "o.mp4", "--fast"}, 2, {"--fast"}},
      {{"export", "none.json", "o.mp4"}, 3, {"none.json"}},
      {{"export", "broken.json", "o.mp4"}, 3, {"broken.json", "JSON"}},
      {{"export", "empty.json", "o.mp4"}, 3, {"nothing to show"}},
      {{"export", "sound.json", "o.mp4"}, 3, {"nothing to show"}},
      {{"export", "gone.json", "o.mp4"}, 3, {"/instructions/0/tracks/0/source", "gone.mp4"}},
      {{"export", "text.json", "o.mp4"}, 3, {"/instructions/0/tracks/0", "text.mp4"}},
      {{"export", "trimmed.json", "o.mp4"}, 3, {"/instructions/0/tracks/0", "trims leave nothing", "clip.mp4"}},
      {{"export", "plain.json", "there.mp4"}, 4, {"there.mp4", "-y"}},
      {{"export", "plain.json", "none/o.mp4"}, 4, {"none/o.mp4", "folder"}},
      {{"export", "plain.json", "folder", "-y"}, 4, {"folder"}},
      {{"export", "plain.json", "clip.mp4", "-y"}, 4, {"clip.mp4", "source"}},
      {{"export", "plain.json", "./plain.json", "-y"}, 4, {"plain.json"}},
      {{"export", "plain.json", "/dev/null", "-y"}, 4, {"/dev/null"}},
  };
  for (const Row& row : rows) {
    const CommandResult result = run(row.arguments);
    const std::string line = ::testing::PrintToString(row.arguments);
    EXPECT_EQ(result.exitCode, row.exitCode) << line << result.err;
    for (const std::string& word : row.words) EXPECT_THAT(result.err, HasSubstr(word)) << line;
    EXPECT_EQ(result.out, "") << line;
  }
  EXPECT_EQ(folder_.names(), before);
  EXPECT_EQ(folder_.read("there.mp4"), "an earlier file");
}

TEST_F(ExportCommandTest, ReplacesAnExistingFileOnlyWhenAsked) {
  folder_.write("out.mp4", "an earlier file");
  ASSERT_EQ(run({"export", "plain.json", "out.mp4", "-y", "--progress", "none"}).exitCode, 0);
  EXPECT_EQ(decodedFrameIndices(at("out.mp4")).size(), 60U);
}

TEST_F(ExportCommandTest, LeavesNothingWhenItIsInterrupted) {
  // The same clip forty times: far more than is done before the signal comes.
  std::string tracks;
  for (int i = 0; i < 40; ++i) {
    tracks += NSStringWithFormat(R"(%s{"id":%d,"source":"clip.mp4","start":%d})", i > 0 ? "," : "", i, 2 * i);
  }
  folder_.write("long.json", project(tracks, "640,360"));
  const auto before = folder_.names();
  struct Row {
    int number;
    std::string moment;  ///< in the progress
  };
  for (const Row& row : {Row{SIGINT, "phase=open"}, Row{SIGINT, "phase=video"}, Row{SIGTERM, "phase=video"}}) {
    RunningCommand command({"export", "long.json", "out.mp4", "--preset", "medium"}, folder_.path());
    ASSERT_TRUE(command.waitForError(row.moment));
    command.signal(row.number);
    const CommandResult result = command.wait();
    EXPECT_EQ(result.exitCode, 6) << row.moment << result.err;
    EXPECT_EQ(folder_.names(), before) << row.moment;
  }
}

TEST_F(ExportCommandTest, TellsAFileSizeLimitAsAnErrorOfTheOutput) {
  const auto before = folder_.names();
  const CommandResult result = runCommand({"export", "plain.json", "out.mp4", "--crf", "0"}, folder_.path(), 20'000);
  EXPECT_EQ(result.exitCode, 4) << result.err;
  EXPECT_THAT(result.err, AllOf(HasSubstr("out.mp4"), HasSubstr("too large")));
  EXPECT_EQ(valuesOf(result.err, "progress").back(), "end");
  EXPECT_EQ(folder_.names(), before);
}

}  // namespace
}  // namespace vidloom::testing
