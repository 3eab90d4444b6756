#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <string>

#include "tests/support/Fixtures.h"
#include "tests/tools/CommandRunner.h"

namespace vidloom::testing {
namespace {

using ::testing::HasSubstr;

std::string project(const std::string& tracks) {
  return R"({"vidloom":1,"renderSize":[320,180],"fps":30,"instructions":[{"id":1,"start":1,"tracks":[)" + tracks + "]}]}";
}

/// A folder with a clip of two seconds, with sound.
class DescribingCommandsTest : public ::testing::Test {
 protected:
  DescribingCommandsTest() {
    ClipSpec spec;
    spec.frameCount = 60;
    spec.sound = sine(440, 96000, 48000);
    folder_.put(makeClip(spec), "clip.mp4");
  }
  CommandResult run(const std::vector<std::string>& arguments) const { return runCommand(arguments, folder_.path()); }

  TemporaryFolder folder_;
};

TEST_F(DescribingCommandsTest, ProbeDescribesAFile) {
  const CommandResult result = run({"probe", "clip.mp4"});
  ASSERT_EQ(result.exitCode, 0) << result.err;
  const auto json = nlohmann::json::parse(result.out);
  EXPECT_EQ(json["duration"]["rational"], "2");
  EXPECT_EQ(json["duration"]["seconds"], 2.0);
  EXPECT_THAT(json["container"].get<std::string>(), HasSubstr("mp4"));
  ASSERT_EQ(json["tracks"].size(), 2U);
  const auto& video = json["tracks"][0];
  EXPECT_EQ(video["type"], "video");
  EXPECT_EQ(video["codec"], "h264");
  EXPECT_EQ(video["naturalSize"], nlohmann::json({320.0, 180.0}));
  EXPECT_EQ(video["preferredTransform"], nlohmann::json({1.0, 0.0, 0.0, 1.0, 0.0, 0.0}));
  EXPECT_EQ(video["nominalFrameRate"], 30.0);
  EXPECT_EQ(video["variableFrameRate"], false);
  EXPECT_EQ(video["timeRange"]["duration"]["rational"], "2");
  EXPECT_TRUE(video["colour"].contains("matrix"));
  const auto& audio = json["tracks"][1];
  EXPECT_EQ(audio["type"], "audio");
  EXPECT_EQ(audio["codec"], "aac");
  EXPECT_EQ(audio["channels"], 2);
  EXPECT_EQ(audio["sampleRate"], 48000.0);
}

TEST_F(DescribingCommandsTest, ProbeRefusesWhatIsNoMedia) {
  folder_.write("text.mp4", "this is no movie");
  for (const std::string name : {"text.mp4", "none.mp4", "."}) {
    const CommandResult result = run({"probe", name});
    EXPECT_EQ(result.exitCode, 3) << name;
    EXPECT_THAT(result.err, HasSubstr(name));
    EXPECT_EQ(result.out, "");
  }
}

TEST_F(DescribingCommandsTest, PlacementPrintsALineForEachSegmentAndDrawsThem) {
  folder_.write("p.json", project(R"({"id":10,"source":"clip.mp4","start":0,"leftTrim":"1/2","mute":true},
                                     {"id":11,"source":"clip.mp4","start":2,"rightTrim":"1/2"})"));
  const CommandResult result = run({"placement", "p.json", "--svg", "p.svg"});
  ASSERT_EQ(result.exitCode, 0) << result.err;
  EXPECT_EQ(result.out,
            "1  video  empty  target 0 +1\n"
            "1  video  source 1/2 +3/2  target 1 +3/2  track 10\n"
            "1  video  empty  target 5/2 +1/2\n"
            "1  video  source 0 +3/2  target 3 +3/2  track 11\n"
            "2  audio  empty  target 0 +3\n"
            "2  audio  source 0 +3/2  target 3 +3/2  track 11\n");
  const std::string drawing = folder_.read("p.svg");
  for (const std::string text : {"<svg", "10  clip.mp4", "11  clip.mp4", "3 \u2013 4.5 s", "of 0.5 \u2013 2 s", "</svg>"}) {
    EXPECT_THAT(drawing, HasSubstr(text));
  }
}

TEST_F(DescribingCommandsTest, PlacementDrawsTheSpeedOfATrackOverTime) {
  folder_.write("p.json", project(R"({"id":10,"source":"clip.mp4","speed":{"box":[0,0,100,100],
                                     "points":[{"x":0,"y":50},{"x":1,"y":0}]}},
                                     {"id":11,"source":"clip.mp4","start":5,"speed":0.5})"));
  const CommandResult result = run({"placement", "p.json", "--svg", "p.svg"});
  ASSERT_EQ(result.exitCode, 0) << result.err;
  EXPECT_THAT(result.out, HasSubstr("source 0 +2  target 6 +4  track 11\n"));
  const std::string drawing = folder_.read("p.svg");
  // The last of the twenty segments begins at 95 % of the way from 1 to 10.
  for (const std::string text : {">1.00x<", ">9.55x<", ">0.50x<", "class=\"speed\""}) EXPECT_THAT(drawing, HasSubstr(text));
}

TEST_F(DescribingCommandsTest, ValidatePrintsEveryProblem) {
  folder_.write("p.json", project(R"({"id":10,"source":"none.mp4","speed":"2"},{"id":10,"source":"clip.mp4"})"));
  const CommandResult result = run({"validate", "p.json"});
  EXPECT_EQ(result.exitCode, 3);
  for (const std::string line : {"p.json:/instructions/0/tracks/0/source: none.mp4",
                                 "p.json:/instructions/0/tracks/0/speed: ", "p.json:/instructions/0/tracks/1/id: "}) {
    EXPECT_THAT(result.out, HasSubstr(line));
  }
}

TEST_F(DescribingCommandsTest, ValidateWarnsOnlyWhereTheDrawingOrderWouldDiffer) {
  const std::string back = R"({"id":10,"source":"clip.mp4"},)";
  struct Row {
    std::string tracks;
    bool warns;
    std::string why;
  };
  const Row rows[] = {
      {back + R"({"id":11,"source":"clip.mp4","rightTrim":"1/10"})", false, "listed later and ends earlier: on top in both"},
      {back + R"({"id":11,"source":"clip.mp4","start":"1/10"})", true, "listed later but ends later"},
      {back + R"({"id":11,"source":"clip.mp4"})", true, "ends at the same time: native takes the one listed first"},
      {back + R"({"id":11,"source":"clip.mp4","start":2})", false, "one after the other"},
      {R"({"id":10,"source":"clip.mp4","transform":[0.5,0,0,0.5,0,0]},
          {"id":11,"source":"clip.mp4","transform":[0.5,0,0,0.5,160,0]})",
       false, "side by side"},
  };
  for (const Row& row : rows) {
    folder_.write("p.json", project(row.tracks));
    const CommandResult result = run({"validate", "p.json"});
    EXPECT_EQ(result.exitCode, 0) << row.why;
    EXPECT_EQ(result.out.find("warning") != std::string::npos, row.warns) << row.why << ": " << result.out;
  }
}

}  // namespace
}  // namespace vidloom::testing
