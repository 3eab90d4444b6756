#include "hostkit/ProjectFile.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "hostkit/TimeText.h"
#include "vidloom/speed/LUMScalePoint.h"
#include "vidloom/speed/PWBezier.h"

namespace vidloom {
namespace {

namespace fs = std::filesystem;

/// A folder with a project, a source a.mp4 that only has to exist, and a file beside the folder.
class ProjectFileTest : public testing::Test {
 protected:
  void SetUp() override {
    std::string pattern = (fs::temp_directory_path() / "project-file-XXXXXX").string();
    root_ = mkdtemp(pattern.data());
    fs::create_directories(root_ / "project/media");
    for (const char* const name : {"project/a.mp4", "project/media/b.mp4", "outside.mp4"}) std::ofstream(root_ / name) << "x";
  }
  void TearDown() override { fs::remove_all(root_); }

  std::optional<ProjectFile> read(const std::string& json, const ProjectOptions& options = {}) {
    std::ofstream(file()) << json;
    problems_.clear();
    return ProjectFile::read(file(), options, problems_);
  }
  /// "pointer: message" of every problem.
  std::vector<std::string> problemsOf(const std::string& json, const ProjectOptions& options = {}) {
    const bool isRead = read(json, options).has_value();
    EXPECT_EQ(isRead, problems_.empty());
    std::vector<std::string> texts;
    for (const ProjectProblem& problem : problems_) {
      EXPECT_EQ(problem.file, file());
      texts.push_back(problem.pointer + ": " + problem.message);
    }
    return texts;
  }
  /// A project with one media track that has an id and a source beside these members.
  static std::string withTrack(const std::string& members) {
    return R"({"vidloom":1,"renderSize":[640,360],"fps":30,"instructions":[{"id":1,"tracks":[{"id":10,"source":"a.mp4")" +
           (members.empty() ? "" : "," + members) + "}]}]}";
  }
  static std::string withTracks(const std::string& tracks) {
    return R"({"vidloom":1,"renderSize":[640,360],"fps":30,"instructions":[{"id":1,"tracks":[)" + tracks + "]}]}";
  }
  fs::path file() const { return root_ / "project/p.json"; }

  fs::path root_;
  ProjectProblems problems_;
};

TEST_F(ProjectFileTest, ReadsEveryKeyOfAMediaTrack) {
  const auto project = read(R"({"vidloom":1,"renderSize":[1920,1080],"fps":25,"instructions":[
    {"id":1,"start":"1/3","tracks":[
      {"id":10,"type":"media","source":"a.mp4","start":2,"leftTrim":"1001/30000","rightTrim":0.5,"fit":"cover","mute":true},
      {"id":11,"source":"media/../media/b.mp4","transform":[0,1,-1,0,360,2.5]}]},
    {"id":2}]})");
  ASSERT_TRUE(project) << problems_.front().text();
  EXPECT_EQ(project->renderSize, CGSizeMake(1920, 1080));
  EXPECT_EQ(project->fps, 25U);
  ASSERT_EQ(project->instructions.size(), 2U);
  EXPECT_TRUE(project->instructions[1].tracks.empty());
  const ProjectInstruction& instruction = project->instructions[0];
  EXPECT_EQ(exactTextFromTime(instruction.start), "1/3");
  ASSERT_EQ(instruction.tracks.size(), 2U);
  const ProjectTrack& first = instruction.tracks[0];
  EXPECT_EQ(first.id, 10U);
  EXPECT_EQ(first.path, fs::canonical(root_ / "project/a.mp4"));
  EXPECT_EQ(exactTextFromTime(first.start), "2");
  EXPECT_EQ(exactTextFromTime(first.leftTrim), "1001/30000");
  EXPECT_EQ(exactTextFromTime(first.rightTrim), "1/2");
  EXPECT_EQ(first.fit, ProjectFit::cover);
  EXPECT_TRUE(first.mute);
  const ProjectTrack& second = instruction.tracks[1];
  EXPECT_EQ(second.path, fs::canonical(root_ / "project/media/b.mp4"));
  EXPECT_EQ(second.transform, CGAffineTransformMake(0, 1, -1, 0, 360, 2.5));
  EXPECT_EQ(second.fit, ProjectFit::contain);
  EXPECT_FALSE(second.mute);
  EXPECT_EQ(exactTextFromTime(second.start), "0");
  EXPECT_EQ(second.pointer, "/instructions/0/tracks/1");
}

TEST_F(ProjectFileTest, NotesWhatIsWrongWithATrackAndWhere) {
  const std::string at = "/instructions/0/tracks/0";
  struct Row {
    std::string members;
    std::string problem;
  };
  const Row rows[] = {
      {R"("start":-1)", at + "/start: the time is negative"},
      {R"("start":"-1/2")", at + "/start: the time is negative"},
      {R"("leftTrim":"0.5")", at + "/leftTrim: \"0.5\" is no time: \"N\" or \"N/D\" in whole numbers"},
      {R"("rightTrim":"1/0")", at + "/rightTrim: the denominator of \"1/0\" must lie between 1 and 2147483647"},
      {R"("start":2e9)", at + "/start: the time is too long: at most 1000000000 seconds"},
      {R"("start":null)", at + "/start: must be a time: seconds as a number, or an exact string \"N\" or \"N/D\""},
      {R"("fit":"stretch")", at + "/fit: \"stretch\" is none of \"contain\", \"cover\", \"none\""},
      {R"("fit":1)", at + "/fit: must be a string, not number"},
      {R"("fit":"none","transform":[1,0,0,1,0,0])", at + ": \"fit\" and \"transform\" cannot both be given"},
      {R"("transform":[1,0,0,1,0])", at + "/transform: must be an array of 6 numbers"},
      {R"("transform":[1,0,0,1,0,"0"])", at + "/transform: must be an array of 6 numbers"},
      {R"("mute":0)", at + "/mute: must be true or false, not number"},
      {R"("type":"sound")", at + "/type: \"sound\" is none of \"media\", \"image\", \"text\""},
      {R"("speed":"2")", at + "/speed: must be a number or a curve, not string"},
      {R"("duration":3)", at + "/duration: \"duration\" is no key of a media track"},
      {R"("a/b~c":3)", at + "/a~1b~0c: \"a/b~c\" is no key of a media track"},
      {R"("text":"a")", at + "/text: \"text\" is no key of a media track"},
      {R"("mute":true,"mute":false)", at + "/mute: the key \"mute\" stands here twice"},
      {R"("crop":[0,0,1,1])", at + "/crop: must be an object, not array"},
      {R"("crop":{})", at + "/crop: needs either \"percent\" or \"absolute\""},
      {R"("crop":{"percent":[0,0,1,1],"absolute":[0,0,9,9]})", at + "/crop: needs either \"percent\" or \"absolute\""},
      {R"("crop":{"absolute":[0,0,9,9],"angle":90})", at + "/crop/angle: \"angle\" is no key of a crop"},
      {R"("crop":{"percent":[0.5,0,0.6,1]})",
       at + "/crop/percent: reaches beyond the picture: \"percent\" counts in fractions from 0 to 1"},
      {R"("crop":{"absolute":[0,0,0,9]})",
       at + "/crop/absolute: must be [x, y, width, height] with x and y from 0 and a size above 0"},
  };
  for (const Row& row : rows) EXPECT_THAT(problemsOf(withTrack(row.members)), testing::ElementsAre(row.problem)) << row.members;
}

TEST_F(ProjectFileTest, ReadsConstantSpeedsAndCurves) {
  const auto constant = read(withTrack(R"("speed":2.5)"));
  ASSERT_TRUE(constant) << problems_.front().text();
  EXPECT_EQ(std::get<double>(*constant->instructions[0].tracks[0].speed), 2.5);

  const auto drawn = read(withTrack(R"("speed":{"box":[10,20,400,200],"offsets":[0.5,"1/3"],
    "points":[{"x":0,"y":120},{"x":0.25,"y":60},{"x":1,"y":220}],
    "curves":[[[10,120],[20,120],[30,60],[110,60]],[[110,60],[150,60],[200,220],[410,220]]]})"));
  ASSERT_TRUE(drawn) << problems_.front().text();
  const auto context = scaleContextOf(*drawn->instructions[0].tracks[0].speed);
  EXPECT_EQ(context->box(), CGRectMake(10, 20, 400, 200));
  EXPECT_EQ(exactTextFromTime(context->offsets().leftOffset), "1/2");
  EXPECT_EQ(exactTextFromTime(context->offsets().rightOffset), "1/3");
  ASSERT_EQ(context->points().size(), 3U);
  EXPECT_EQ(context->points()[1]->x(), 0.25f);
  EXPECT_EQ(context->points()[1]->center(), CGPointMake(110, 60));
  ASSERT_EQ(context->beziers().size(), 2U);
  EXPECT_EQ(context->beziers()[1]->C2(), CGPointMake(200, 220));

  const auto straight = read(withTrack(R"("speed":{"box":[0,0,90,100],"points":[{"x":0,"y":50},{"x":1,"y":20}]})"));
  ASSERT_TRUE(straight) << problems_.front().text();
  const auto lines = scaleContextOf(*straight->instructions[0].tracks[0].speed)->beziers();
  ASSERT_EQ(lines.size(), 1U);
  EXPECT_EQ(lines[0]->C0(), CGPointMake(0, 50));
  EXPECT_EQ(lines[0]->C1(), CGPointMake(30, 40));
  EXPECT_EQ(lines[0]->C3(), CGPointMake(90, 20));
}

TEST_F(ProjectFileTest, NotesWhatIsWrongWithASpeedCurve) {
  const std::string at = "/instructions/0/tracks/0/speed";
  const std::string box = R"("box":[0,0,1,1])", points = R"("points":[{"x":0,"y":1},{"x":1,"y":1}])";
  const std::pair<std::string, std::string> rows[] = {
      {box, ": the key \"points\" is missing"},
      {points, ": the key \"box\" is missing"},
      {R"("box":[0,0,1,0],)" + points, "/box: width and height must be greater than 0"},
      {box + "," + points + R"(,"speed":2)", "/speed: \"speed\" is no key of a speed curve"},
      {box + R"(,"points":[{"x":0,"y":1}])", "/points: must be 2 points or more"},
      {box + R"(,"points":[{"x":0,"y":1},{"x":1.5,"y":1}])", "/points/1/x: must lie between 0 and 1"},
      {box + R"(,"points":[{"x":0.5,"y":1},{"x":0.25,"y":1}])", "/points/1/x: lies before the x of the point before"},
      {box + R"(,"points":[{"x":0,"y":1},{"x":1}])", "/points/1: the key \"y\" is missing"},
      {box + R"(,"points":[{"x":0,"y":1},{"x":1,"y":"1"}])", "/points/1/y: must be a number, not string"},
      {box + "," + points + R"(,"offsets":[0])", "/offsets: must be an array of 2 times"},
      {box + "," + points + R"(,"offsets":[0,-1])", "/offsets/1: the time is negative"},
      {box + "," + points + R"(,"curves":[])", "/curves: must be 1, one between each two points, not 0"},
      {box + "," + points + R"(,"curves":[[[0,0],[0,0],[0,0]]])", "/curves/0: must be an array of 4 points [x, y]"},
      {box + "," + points + R"(,"curves":[[[0,0],[0,0],[0,0],[0]]])", "/curves/0/3: must be an array of 2 numbers"},
  };
  for (const auto& [members, problem] : rows) {
    EXPECT_THAT(problemsOf(withTrack("\"speed\":{" + members + "}")), testing::ElementsAre(at + problem)) << members;
  }
}

TEST_F(ProjectFileTest, ReadsImagesTextsAndCrops) {
  const auto project = read(withTracks(R"(
      {"id":1,"source":"a.mp4","crop":{"percent":[0.25,0,0.5,1]}},
      {"id":2,"type":"image","source":"a.mp4","start":1,"duration":"3/2","fit":"none","crop":{"absolute":[1,2,30,40]}},
      {"id":3,"type":"text","text":"Hello","duration":2,"font":"Serif Bold 20","color":"#10aB3080","position":[4,5.5]},
      {"id":4,"type":"text","text":"a","duration":2,"color":"#fedcba"}, {"id":5,"type":"text","text":"a","duration":2})"));
  ASSERT_TRUE(project) << problems_.front().text();
  const auto& tracks = project->instructions[0].tracks;
  ASSERT_EQ(tracks.size(), 5U);
  EXPECT_TRUE(tracks[0].crop->isPercent);
  EXPECT_EQ(tracks[0].crop->rect, CGRectMake(0.25, 0, 0.5, 1));
  EXPECT_EQ(tracks[1].type, ProjectTrackType::image);
  EXPECT_EQ(exactTextFromTime(tracks[1].duration), "3/2");
  EXPECT_FALSE(tracks[1].crop->isPercent);
  EXPECT_EQ(tracks[1].crop->rect, CGRectMake(1, 2, 30, 40));
  EXPECT_EQ(tracks[2].type, ProjectTrackType::text);
  EXPECT_EQ(tracks[2].font, "Serif Bold 20");
  EXPECT_EQ(tracks[2].colorRGBA, 0x10ab3080U);
  EXPECT_EQ(tracks[2].position, CGPointMake(4, 5.5));
  EXPECT_EQ(tracks[3].colorRGBA, 0xfedcbaffU);
  EXPECT_EQ(tracks[4].colorRGBA, 0xffffffffU);
}

TEST_F(ProjectFileTest, NotesWhatIsWrongWithImagesAndTexts) {
  const std::string at = "/instructions/0/tracks/0";
  const std::string image = R"({"id":1,"type":"image","source":"a.mp4",)", text = R"({"id":1,"type":"text",)";
  struct Row {
    std::string track;
    std::string problem;
  };
  const Row rows[] = {
      {image + R"("fit":"none"})", at + ": the key \"duration\" is missing"},
      {image + R"("duration":0})", at + "/duration: must be longer than 0"},
      {image + R"("duration":1,"mute":true})", at + "/mute: \"mute\" is no key of an image track"},
      {image + R"("duration":1,"font":"Sans"})", at + "/font: \"font\" is no key of an image track"},
      {text + R"("duration":1})", at + ": the key \"text\" is missing"},
      {text + R"("text":"a"})", at + ": the key \"duration\" is missing"},
      {text + R"("text":" \n","duration":1})", at + "/text: must be a text with something to see, without NUL characters"},
      {text + R"("text":"a","duration":1,"color":"red"})", at + "/color: must be a colour \"#rrggbb\" or \"#rrggbbaa\""},
      {text + R"("text":"a","duration":1,"color":"#12345g"})", at + "/color: must be a colour \"#rrggbb\" or \"#rrggbbaa\""},
      {text + R"("text":"a","duration":1,"position":[1]})", at + "/position: must be an array of 2 numbers"},
      {text + R"("text":"a","duration":1,"source":"a.mp4"})", at + "/source: \"source\" is no key of a text track"},
  };
  for (const Row& row : rows) EXPECT_THAT(problemsOf(withTracks(row.track)), testing::ElementsAre(row.problem)) << row.track;
}

TEST_F(ProjectFileTest, SaysWhatNativeCompositionCannotHonour) {
  const std::string tracks = R"({"id":1,"source":"a.mp4","crop":{"percent":[0,0,1,1]}},
      {"id":2,"type":"image","source":"a.mp4","duration":1}, {"id":3,"type":"text","text":"a","duration":1})";
  EXPECT_THAT(problemsOf(withTracks(tracks)), testing::IsEmpty());
  EXPECT_THAT(problemsOf(withTracks(tracks), {.native = true}),
              testing::ElementsAre("/instructions/0/tracks/0/crop: \"crop\" is not supported by native composition",
                                   "/instructions/0/tracks/1/type: \"type\": \"image\" is not supported by native composition",
                                   "/instructions/0/tracks/2/type: \"type\": \"text\" is not supported by native composition"));
}

TEST_F(ProjectFileTest, NotesWhatIsWrongWithTheRest) {
  struct Row {
    std::string json;
    std::string problem;
  };
  const std::string head = R"("vidloom":1,"renderSize":[640,360],"fps":30)";
  const Row rows[] = {
      {"[]", ": must be an object, not array"},
      {R"({"renderSize":[640,360],"fps":30,"instructions":[]})", ": the key \"vidloom\" is missing"},
      {R"({"vidloom":2,"renderSize":[640,360],"fps":30,"instructions":[]})",
       "/vidloom: version 2 of project files is not known; this is version 1"},
      {R"({"vidloom":1,"fps":30,"instructions":[]})", ": the key \"renderSize\" is missing"},
      {R"({"vidloom":1,"renderSize":[640],"fps":30,"instructions":[]})", "/renderSize: must be an array of 2 numbers"},
      {R"({"vidloom":1,"renderSize":[640,0],"fps":30,"instructions":[]})",
       "/renderSize: width and height must be whole numbers from 2 to 8192"},
      {R"({"vidloom":1,"renderSize":[640.5,360],"fps":30,"instructions":[]})",
       "/renderSize: width and height must be whole numbers from 2 to 8192"},
      {R"({"vidloom":1,"renderSize":[640,360],"fps":24,"instructions":[]})", "/fps: must be 15, 25, 30 or 60, not 24"},
      {R"({"vidloom":1,"renderSize":[640,360],"fps":29.97,"instructions":[]})",
       "/fps: must be a whole number that is not negative"},
      {"{" + head + "}", ": the key \"instructions\" is missing"},
      {"{" + head + R"(,"instructions":{}})", "/instructions: must be an array, not object"},
      {"{" + head + R"(,"instructions":[],"tracks":[]})", "/tracks: \"tracks\" is no key of a project"},
      {"{" + head + R"(,"instructions":[7]})", "/instructions/0: must be an object, not number"},
      {"{" + head + R"(,"instructions":[{}]})", "/instructions/0: the key \"id\" is missing"},
      {"{" + head + R"(,"instructions":[{"id":-1}]})", "/instructions/0/id: must be a whole number that is not negative"},
      {"{" + head + R"(,"instructions":[{"id":1,"end":2}]})", "/instructions/0/end: \"end\" is no key of an instruction"},
      {"{" + head + R"(,"instructions":[{"id":1},{"id":1}]})", "/instructions/1/id: another instruction has the id 1 too"},
      {withTracks(R"({"id":1,"source":"a.mp4"},{"id":1,"source":"a.mp4"})"),
       "/instructions/0/tracks/1/id: another track has the id 1 too"},
      {withTracks(R"({"source":"a.mp4"})"), "/instructions/0/tracks/0: the key \"id\" is missing"},
      {withTracks(R"({"id":1})"), "/instructions/0/tracks/0: the key \"source\" is missing"},
      {withTracks(R"({"id":1,"source":""})"), "/instructions/0/tracks/0/source: must be the path of a file"},
      {withTracks(R"({"id":1,"source":"gone.mp4"})"), "/instructions/0/tracks/0/source: gone.mp4: the file does not exist"},
  };
  for (const Row& row : rows) EXPECT_THAT(problemsOf(row.json), testing::ElementsAre(row.problem)) << row.json;
}

TEST_F(ProjectFileTest, FindsAllProblemsInOnePass) {
  EXPECT_THAT(problemsOf(R"({"vidloom":1,"renderSize":"big","fps":24,"extra":0,"instructions":[
                {"id":1,"tracks":[{"id":1,"source":"a.mp4","start":-1},{"id":1,"fit":"all","source":"gone.mp4"}]}]})"),
              testing::SizeIs(7));
}

TEST_F(ProjectFileTest, SaysWhereAFileStopsBeingJson) {
  const auto texts = problemsOf("{\"vidloom\":1,\n \"fps\":}");
  ASSERT_EQ(texts.size(), 1U);
  EXPECT_THAT(texts[0], testing::AllOf(testing::HasSubstr("not valid JSON"), testing::HasSubstr("line 2")));
  EXPECT_THAT(problemsOf(""), testing::SizeIs(1));
  EXPECT_THAT(problemsOf(std::string(100'000, '[')), testing::SizeIs(1));
  EXPECT_THAT(problemsOf("{\"vidloom\":1e999}"), testing::SizeIs(1));
}

TEST_F(ProjectFileTest, RefusesWhatIsNoRegularFile) {
  for (const auto& [path, cause] : {std::pair{root_ / "project/none.json", "No such file"}, {root_ / "project", "regular"}}) {
    problems_.clear();
    EXPECT_FALSE(ProjectFile::read(path, {}, problems_));
    ASSERT_EQ(problems_.size(), 1U);
    EXPECT_THAT(problems_[0].text(), testing::AllOf(testing::StartsWith(path.string() + ":/: "), testing::HasSubstr(cause)));
  }
}

TEST_F(ProjectFileTest, KeepsSourcesInItsFolderWhateverWayTheyLeave) {
  fs::create_symlink(root_ / "outside.mp4", root_ / "project/link.mp4");
  fs::create_directory_symlink(root_, root_ / "project/up");
  fs::create_symlink("a.mp4", root_ / "project/inside.mp4");
  for (const std::string& source : {std::string("../outside.mp4"), std::string("link.mp4"), std::string("up/outside.mp4"),
                                    (root_ / "outside.mp4").string(), std::string("../project-b/a.mp4")}) {
    const std::string track = R"({"id":1,"source":")" + source + "\"}";
    EXPECT_THAT(problemsOf(withTracks(track)),
                testing::ElementsAre("/instructions/0/tracks/0/source: " + source +
                                     " lies outside the project's folder (--allow-outside permits that)"));
  }
  EXPECT_THAT(problemsOf(withTracks(R"({"id":1,"source":"../outside.mp4"})"), {.allowOutside = true}), testing::IsEmpty());
  EXPECT_THAT(problemsOf(withTracks(R"({"id":1,"source":"inside.mp4"})")), testing::IsEmpty());
  EXPECT_THAT(problemsOf(withTracks(R"({"id":1,"source":"../project/a.mp4"})")), testing::IsEmpty());
}

}  // namespace
}  // namespace vidloom
