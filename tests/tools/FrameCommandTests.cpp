#include <gmock/gmock.h>

#include <algorithm>
#include <cmath>

#include "tests/support/ImageFiles.h"
#include "tests/support/MovieProbe.h"
#include "tests/tools/CommandRunner.h"

namespace vidloom::testing {
namespace {

constexpr size_t kLumaBytes = 320 * 180, kFrameBytes = kLumaBytes * 3 / 2;

/// A folder with a clip of 60 numbered frames, a picture with alpha, and projects of them, 2.5 s and 2 s at 30 fps.
class FrameCommandTest : public CommandTest {
 protected:
  FrameCommandTest() {
    std::filesystem::copy(makeClip({.frameCount = 60, .bFrames = 2}), at("clip.mp4"));
    const auto disc = [](int x, int y) {
      return Rgba{uint8_t(x * 4), uint8_t(y * 4), 120, uint8_t(std::hypot(x - 30, y - 30) < 28 ? 255 : 0)};
    };
    std::filesystem::copy(makeImage("disc.png", 60, 60, rgbaBytes(60, 60, disc), {}), at("logo.png"));
    writeProject("mixed.json", R"({"id":1,"source":"clip.mp4"},
      {"id":2,"source":"clip.mp4","start":"1/3","leftTrim":"1/2","transform":[0.5,0,0,0.5,101.5,37],"crop":{"absolute":[31,11,201,99]}},
      {"id":3,"type":"image","source":"logo.png","start":0.4,"duration":2.1,"transform":[0.5,0.1,-0.1,0.5,250,20.5]},
      {"id":4,"type":"text","text":"Title","font":"Sans Bold 31","start":"1/2","duration":1,"position":[20,100.5]})");
    writeProject("native.json", R"({"id":1,"source":"clip.mp4"},{"id":2,"source":"clip.mp4","start":"1/3",
      "rightTrim":1,"transform":[0.7,0.2,-0.2,0.7,101.5,37]})");
  }
};

/// Planes from 420f to the limited range, as the encoder takes them.
std::string toLimited(std::string planes) {
  for (size_t i = 0; i < planes.size(); ++i) {
    const int code = static_cast<uint8_t>(planes[i]);
    planes[i] = static_cast<char>(std::lround(i < kLumaBytes ? 16 + code * 219 / 255.0 : 128 + (code - 128) * 224 / 255.0));
  }
  return planes;
}

/// Codes beyond black and white, which the full range has no room for, are put there.
std::string clipped(std::string limited) {
  for (size_t i = 0; i < limited.size(); ++i) {
    limited[i] = static_cast<char>(std::clamp<int>(static_cast<uint8_t>(limited[i]), 16, i < kLumaBytes ? 235 : 240));
  }
  return limited;
}

TEST_F(FrameCommandTest, WritesThePlanesThatEnterTheEncoder) {
  const std::tuple<std::string, std::string, size_t> rows[] = {{"mixed.json", "", 75}, {"native.json", " --native", 60}};
  for (const auto& [project, options, count] : rows) {
    ASSERT_EQ(run("export " + project + " out.mp4 -y --crf 0 --preset ultrafast" + options).exitCode, 0);
    runProgram({"ffmpeg", "-v", "error", "-y", "-i", at("out.mp4"), "-f", "rawvideo", "-pix_fmt", "nv12", at("frames.nv12")});
    const std::string frames = read("frames.nv12");
    ASSERT_EQ(frames.size(), count * kFrameBytes);
    for (size_t index = 0; index < count; index += index % 15 == 9 ? 1 : 7) {
      const CommandResult result = run("frame " + project + " " + std::to_string(index) + "/30 frame.420f" + options);
      ASSERT_EQ(result.exitCode, 0) << result.err;
      EXPECT_TRUE(toLimited(read("frame.420f")) == clipped(frames.substr(index * kFrameBytes, kFrameBytes))) << project << index;
    }
  }
}

TEST_F(FrameCommandTest, ShowsTheLastStepOfTheGridAtOrBeforeTheTime) {
  const auto planesAt = [&](const std::string& time) {
    const CommandResult result = run("frame mixed.json " + time + " at.420f");
    EXPECT_EQ(result.exitCode, 0) << result.err;
    return read("at.420f");
  };
  const std::string step = planesAt("7/30");
  EXPECT_TRUE(planesAt("799/3000") == step);
  EXPECT_FALSE(planesAt("8/30") == step);
  EXPECT_FALSE(planesAt("0.2333") == step);
}

TEST_F(FrameCommandTest, WritesAPictureThatOthersRead) {
  ASSERT_EQ(run("frame mixed.json 2.4 out.png").exitCode, 0);
  EXPECT_EQ(MovieProbe(at("out.png")).number("v:0", "width"), 320);
  EXPECT_EQ(MovieProbe(at("out.png")).number("v:0", "height"), 180);
}

TEST_F(FrameCommandTest, RefusesWithTheRightExitCode) {
  writeProject("silent.json", "");
  expectRefusals({
      {"frame mixed.json 2.5 out.png", 2, {"the timeline ends at 5/2 s"}},
      {"frame -- mixed.json -1 out.png", 2, {"negative"}},
      {"frame mixed.json soon out.png", 2, {"is no time"}},
      {"frame mixed.json 1 out.jpg", 2, {"must end in .png or .420f"}},
      {"frame silent.json 0 out.png", 2, {"the timeline ends at 0 s"}},
      {"frame gone.json 1 out.png", 3, {"No such file"}},
      {"frame mixed.json 1 out.png --native", 3, {"/instructions/0/tracks/1/crop: \"crop\" is not supported by native"}},
      {"frame mixed.json 1 none/out.png", 4, {"the folder none does not exist"}},
      {"frame mixed.json 1 logo.png", 4, {"is the source logo.png of the project"}},
  });
}

}  // namespace
}  // namespace vidloom::testing
