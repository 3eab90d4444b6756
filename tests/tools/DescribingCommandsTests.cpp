#include <gmock/gmock.h>

#include <nlohmann/json.hpp>

#include "tests/tools/CommandRunner.h"

namespace vidloom::testing {
namespace {

using nlohmann::json;
using ::testing::HasSubstr;

/// A folder with a clip of two seconds, with sound.
class DescribingCommandsTest : public CommandTest {
 protected:
  DescribingCommandsTest() {
    std::filesystem::copy(makeClip({.frameCount = 60, .sound = sine(440, 96000, 48000)}), at("clip.mp4"));
  }
};

TEST_F(DescribingCommandsTest, ProbeDescribesAFile) {
  const auto probed = json::parse(run("probe clip.mp4").out);
  EXPECT_EQ(probed["duration"], json({{"rational", "2"}, {"seconds", 2.0}}));
  EXPECT_THAT(probed["container"].get<std::string>(), HasSubstr("mp4"));
  ASSERT_EQ(probed["tracks"].size(), 2U);
  const auto& video = probed["tracks"][0];
  EXPECT_EQ(video["type"], "video");
  EXPECT_EQ(video["codec"], "h264");
  EXPECT_EQ(video["naturalSize"], json({320.0, 180.0}));
  EXPECT_EQ(video["preferredTransform"], json({1.0, 0.0, 0.0, 1.0, 0.0, 0.0}));
  EXPECT_EQ(video["nominalFrameRate"], 30.0);
  EXPECT_EQ(video["variableFrameRate"], false);
  EXPECT_EQ(video["timeRange"]["duration"]["rational"], "2");
  EXPECT_TRUE(video["colour"].contains("matrix"));
  const auto& audio = probed["tracks"][1];
  EXPECT_EQ(audio["codec"], "aac");
  EXPECT_EQ(audio["channels"], 2);
  EXPECT_EQ(audio["sampleRate"], 48000.0);

  write("text.mp4", "this is no movie");
  expectRefusals({{"probe text.mp4", 3, {"text.mp4"}}, {"probe none.mp4", 3, {"none.mp4"}}, {"probe .", 3, {"."}}});
}

TEST_F(DescribingCommandsTest, PlacementPrintsALineForEachSegmentAndDrawsThem) {
  writeProject("p.json", R"({"id":10,"source":"clip.mp4","start":1,"leftTrim":"1/2","mute":true},
                            {"id":11,"source":"clip.mp4","start":3,"rightTrim":"1/2"})");
  EXPECT_EQ(run("placement p.json --svg p.svg").out,
            "1  video  empty  target 0 +1\n"
            "1  video  source 1/2 +3/2  target 1 +3/2  track 10\n"
            "1  video  empty  target 5/2 +1/2\n"
            "1  video  source 0 +3/2  target 3 +3/2  track 11\n"
            "2  audio  empty  target 0 +3\n"
            "2  audio  source 0 +3/2  target 3 +3/2  track 11\n");
  for (const std::string text : {"<svg", "10  clip.mp4", "11  clip.mp4", "3 \u2013 4.5 s", "of 0.5 \u2013 2 s", "</svg>"}) {
    EXPECT_THAT(read("p.svg"), HasSubstr(text));
  }
  for (const std::string name : {"p.json", "clip.mp4"}) {
    const std::string before = read(name);
    EXPECT_EQ(run("placement p.json --svg " + name).exitCode, 4);
    EXPECT_TRUE(read(name) == before) << name;
  }
}

TEST_F(DescribingCommandsTest, PlacementDrawsTheSpeedOfATrackOverTime) {
  writeProject("p.json", R"({"id":10,"source":"clip.mp4","speed":{"box":[0,0,100,100],"points":[{"x":0,"y":50},{"x":1,"y":0}]}},
                            {"id":11,"source":"clip.mp4","start":6,"speed":0.5})");
  EXPECT_THAT(run("placement p.json --svg p.svg").out, HasSubstr("source 0 +2  target 6 +4  track 11\n"));
  // The last of the twenty segments begins at 95 % of the way from 1 to 10.
  for (const std::string text : {">1.00x<", ">9.55x<", ">0.50x<", "class=\"speed\""}) EXPECT_THAT(read("p.svg"), HasSubstr(text));
}

TEST_F(DescribingCommandsTest, PlacementLeavesASlowTrackItsTime) {
  writeProject("p.json", R"({"id":1,"source":"clip.mp4","speed":0.25},{"id":2,"source":"clip.mp4","start":3})");
  const std::string lines = run("placement p.json").out;
  EXPECT_THAT(lines, HasSubstr("1  video  source 0 +2  target 3 +2  track 2\n"));
  EXPECT_THAT(lines, HasSubstr("3  video  source 0 +2  target 0 +8  track 1\n"));
}

TEST_F(DescribingCommandsTest, ValidatePrintsEveryProblem) {
  writeProject("p.json", R"({"id":10,"source":"none.mp4","speed":"2"},{"id":10,"source":"clip.mp4"})");
  const CommandResult result = run("validate p.json");
  EXPECT_EQ(result.exitCode, 3);
  for (const std::string place : {"0/source: none.mp4", "0/speed: ", "1/id: "}) {
    EXPECT_THAT(result.out, HasSubstr("p.json:/instructions/0/tracks/" + place));
  }
  writeProject("empty.json", "");
  const CommandResult empty = run("validate empty.json");
  EXPECT_EQ(empty.exitCode, 3);
  EXPECT_THAT(empty.out, HasSubstr("empty.json:/instructions: there is nothing to show"));
}

TEST_F(DescribingCommandsTest, ValidateWarnsOnlyWhereTheDrawingOrderWouldDiffer) {
  const std::string back = R"({"id":10,"source":"clip.mp4"},)";
  const std::string half = R"({"id":10,"source":"clip.mp4","transform":[0.5,0,0,0.5,0,0]},)";
  const struct {
    std::string tracks;
    bool warns;
    std::string why;
  } rows[] = {
      {back + R"({"id":11,"source":"clip.mp4","rightTrim":"1/10"})", false, "listed later and ends earlier: on top in both"},
      {back + R"({"id":11,"source":"clip.mp4","start":"1/10"})", true, "listed later but ends later"},
      {back + R"({"id":11,"source":"clip.mp4"})", true, "ends at the same time: native takes the one listed first"},
      {back + R"({"id":11,"source":"clip.mp4","start":2})", false, "one after the other"},
      {half + R"({"id":11,"source":"clip.mp4","transform":[0.5,0,0,0.5,160,0]})", false, "side by side"},
  };
  for (const auto& [tracks, warns, why] : rows) {
    writeProject("p.json", tracks);
    const CommandResult result = run("validate p.json");
    EXPECT_EQ(result.exitCode, 0) << why;
    EXPECT_EQ(result.out.find("warning") != std::string::npos, warns) << why << ": " << result.out;
  }
}

}  // namespace
}  // namespace vidloom::testing
