#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <string>

#include "tests/support/Fixtures.h"
#include "tests/tools/CommandRunner.h"

namespace vidloom::testing {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;

constexpr int kWidth = 320, kHeight = 180;

/// A folder with a clip of 60 numbered frames, a picture with alpha, and a project of both, a title and a crop, 2.5 s at 30 fps.
class FrameCommandTest : public ::testing::Test {
 protected:
  FrameCommandTest() {
    ClipSpec spec;
    spec.frameCount = 60;
    spec.bFrames = 2;
    folder_.put(makeClip(spec), "clip.mp4");
    EXPECT_EQ(runProgram({"ffmpeg", "-v", "error", "-y", "-f", "lavfi", "-i",
                          "color=red:s=60x60,format=rgba,geq=r=X*4:g=Y*4:b=120:a='255*lt(hypot(X-30,Y-30),28)'", "-frames:v", "1",
                          folder_.path() / "logo.png"}),
              0);
    folder_.write("mixed.json", project(R"({"id":1,"source":"clip.mp4"},
      {"id":2,"source":"clip.mp4","start":"1/3","leftTrim":"1/2","transform":[0.5,0,0,0.5,101.5,37],"crop":{"absolute":[31,11,201,99]}},
      {"id":3,"type":"image","source":"logo.png","start":0.4,"duration":2.1,"transform":[0.5,0.1,-0.1,0.5,250,20.5]},
      {"id":4,"type":"text","text":"Title","font":"Sans Bold 31","start":"1/2","duration":1,"position":[20,100.5]})"));
    folder_.write("native.json", project(R"({"id":1,"source":"clip.mp4"},{"id":2,"source":"clip.mp4","start":"1/3",
      "rightTrim":1,"transform":[0.7,0.2,-0.2,0.7,101.5,37]})"));
  }
  static std::string project(const std::string& tracks) {
    return R"({"vidloom":1,"renderSize":[320,180],"fps":30,"instructions":[{"id":1,"tracks":[)" + tracks + "]}]}";
  }
  CommandResult run(const std::vector<std::string>& arguments) const { return runCommand(arguments, folder_.path()); }

  /// The luma of a frame and its chroma, Cb and Cr by turns, from 420f to the limited range, as the encoder takes them.
  static std::string toLimited(const std::string& planes) {
    std::string limited;
    for (size_t i = 0; i < planes.size(); ++i) {
      const int code = static_cast<uint8_t>(planes[i]);
      const double value = i < static_cast<size_t>(kWidth * kHeight) ? 16 + code * 219 / 255.0 : 128 + (code - 128) * 224 / 255.0;
      limited += static_cast<char>(static_cast<uint8_t>(std::lround(value)));
    }
    return limited;
  }

  /// Codes beyond black and white, which the full range has no room for, are put there.
  static std::string clipped(std::string limited) {
    for (size_t i = 0; i < limited.size(); ++i) {
      const int white = i < static_cast<size_t>(kWidth * kHeight) ? 235 : 240;
      limited[i] = static_cast<char>(std::clamp(static_cast<int>(static_cast<uint8_t>(limited[i])), 16, white));
    }
    return limited;
  }

  TemporaryFolder folder_;
};

TEST_F(FrameCommandTest, WritesThePlanesThatEnterTheEncoder) {
  constexpr size_t kFrameBytes = kWidth * kHeight * 3 / 2;
  struct Row {
    std::string project;
    std::vector<std::string> options;
  };
  for (const Row& row : {Row{"mixed.json", {}}, Row{"native.json", {"--native"}}}) {
    std::vector<std::string> exporting = {"export", row.project, "out.mp4", "-y", "--crf", "0", "--preset", "ultrafast"};
    exporting.insert(exporting.end(), row.options.begin(), row.options.end());
    ASSERT_EQ(run(exporting).exitCode, 0);
    ASSERT_EQ(runProgram({"ffmpeg", "-v", "error", "-y", "-i", folder_.path() / "out.mp4", "-f", "rawvideo", "-pix_fmt", "nv12",
                          folder_.path() / "frames.nv12"}),
              0);
    const std::string frames = folder_.read("frames.nv12");
    const size_t count = frames.size() / kFrameBytes;
    ASSERT_EQ(count, row.options.empty() ? 75U : 60U);
    for (size_t index = 0; index < count; index += index % 15 == 9 ? 1 : 7) {
      std::vector<std::string> arguments = {"frame", row.project, std::to_string(index) + "/30", "frame.420f"};
      arguments.insert(arguments.end(), row.options.begin(), row.options.end());
      const CommandResult result = run(arguments);
      ASSERT_EQ(result.exitCode, 0) << result.err;
      EXPECT_TRUE(toLimited(folder_.read("frame.420f")) == clipped(frames.substr(index * kFrameBytes, kFrameBytes)))
          << row.project << " frame " << index;
    }
  }
}

TEST_F(FrameCommandTest, ShowsTheLastStepOfTheGridAtOrBeforeTheTime) {
  const auto planesAt = [&](const std::string& time) {
    const CommandResult result = run({"frame", "mixed.json", time, "at.420f"});
    EXPECT_EQ(result.exitCode, 0) << result.err;
    return folder_.read("at.420f");
  };
  const std::string step = planesAt("7/30");
  EXPECT_TRUE(planesAt("0.26") == step);
  EXPECT_TRUE(planesAt("799/3000") == step);
  EXPECT_FALSE(planesAt("8/30") == step);
  EXPECT_FALSE(planesAt("0.2333") == step);
}

TEST_F(FrameCommandTest, WritesAPictureThatOthersRead) {
  ASSERT_EQ(run({"frame", "mixed.json", "2.4", "out.png"}).exitCode, 0);
  std::string size;
  ASSERT_EQ(
      runProgram({"ffprobe", "-v", "error", "-show_entries", "stream=width,height", "-of", "csv=p=0", folder_.path() / "out.png"},
                 &size),
      0);
  EXPECT_EQ(size, "320,180\n");
}

TEST_F(FrameCommandTest, RefusesWithTheRightExitCode) {
  folder_.write("silent.json", project(""));
  struct Row {
    std::vector<std::string> arguments;
    int exitCode;
    std::string text;
  };
  const Row rows[] = {
      {{"mixed.json", "2.5", "out.png"}, 2, "the timeline ends at 5/2 s"},
      {{"mixed.json", "9", "out.png"}, 2, "the timeline ends at 5/2 s"},
      {{"mixed.json", "-1", "out.png"}, 2, "negative"},
      {{"mixed.json", "soon", "out.png"}, 2, "is no time"},
      {{"mixed.json", "1", "out.jpg"}, 2, "must end in .png or .420f"},
      {{"silent.json", "0", "out.png"}, 2, "the timeline ends at 0 s"},
      {{"gone.json", "1", "out.png"}, 3, "No such file"},
      {{"mixed.json", "1", "out.png", "--native"}, 3, "/instructions/0/tracks/1/crop: \"crop\" is not supported by native"},
      {{"mixed.json", "1", "none/out.png"}, 4, "the folder none does not exist"},
      {{"mixed.json", "1", "logo.png"}, 4, "is the source logo.png of the project"},
  };
  for (const Row& row : rows) {
    std::vector<std::string> arguments = {"frame"};
    arguments.insert(arguments.end(), row.arguments.begin(), row.arguments.end());
    if (row.arguments[1] == "-1") arguments.insert(arguments.begin() + 1, "--");
    const CommandResult result = run(arguments);
    EXPECT_EQ(result.exitCode, row.exitCode) << row.text;
    EXPECT_THAT(result.err, HasSubstr(row.text));
  }
  EXPECT_THAT(folder_.names(), Not(::testing::Contains("out.png")));
}

}  // namespace
}  // namespace vidloom::testing
