#include "hostkit/ProjectFile.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "hostkit/TimeText.h"
#include "tests/support/Fixtures.h"
#include "vidloom/speed/LUMScalePoint.h"
#include "vidloom/speed/PWBezier.h"

namespace vidloom {
namespace {

namespace fs = std::filesystem;

/// A folder with a project, a source a.mp4 that only has to exist, and a file beside the folder.
class ProjectFileTest : public ::testing::Test {
 protected:
  void SetUp() override {
    fs::create_directories(root_ / "project/media");
    for (const char* const name : {"project/a.mp4", "project/media/b.mp4", "outside.mp4"}) std::ofstream(root_ / name) << "x";
  }

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
  /// A project with one media track that has an id, a source and these members.
  static std::string withTrack(const std::string& members) { return withTracks(R"({"id":10,"source":"a.mp4",)" + members + "}"); }
  static std::string withTracks(const std::string& tracks) {
    return R"({"vidloom":1,"renderSize":[640,360],"fps":30,"instructions":[{"id":1,"tracks":[)" + tracks + "]}]}";
  }
  fs::path file() const { return root_ / "project/p.json"; }

  const fs::path root_ = testing::freshDestination("here");
  ProjectProblems problems_;
};

TEST_F(ProjectFileTest, ReadsEveryKey) {
  const auto project = read(R"({"vidloom":1,"renderSize":[1920,1080],"fps":25,"instructions":[
    {"id":1,"start":"1/3","tracks":[
      {"id":10,"type":"media","source":"a.mp4","start":2,"leftTrim":"1001/30000","rightTrim":0.5,"fit":"cover","mute":true},
      {"id":11,"source":"media/../media/b.mp4","transform":[0,1,-1,0,360,2.5],"crop":{"percent":[0.25,0,0.5,1]}},
      {"id":2,"type":"image","source":"a.mp4","duration":"3/2","fit":"none","crop":{"absolute":[1,2,30,40]}},
      {"id":3,"type":"text","text":"Hello","duration":2,"font":"Serif Bold 20","color":"#10aB3080","position":[4,5.5]},
      {"id":4,"type":"text","text":"a","duration":2,"color":"#fedcba"}]},
    {"id":2}]})");
  ASSERT_TRUE(project) << problems_.front().text();
  EXPECT_EQ(project->renderSize, CGSizeMake(1920, 1080));
  EXPECT_EQ(project->fps, 25U);
  EXPECT_TRUE(project->instructions.at(1).tracks.empty());
  EXPECT_EQ(exactTextFromTime(project->instructions[0].start), "1/3");
  const auto& tracks = project->instructions[0].tracks;
  ASSERT_EQ(tracks.size(), 5U);
  EXPECT_EQ(tracks[0].id, 10U);
  EXPECT_EQ(exactTextFromTime(tracks[0].start), "2");
  EXPECT_EQ(exactTextFromTime(tracks[0].leftTrim), "1001/30000");
  EXPECT_EQ(exactTextFromTime(tracks[0].rightTrim), "1/2");
  EXPECT_EQ(tracks[0].fit, ProjectFit::cover);
  EXPECT_TRUE(tracks[0].mute);
  EXPECT_EQ(tracks[1].path, fs::canonical(root_ / "project/media/b.mp4"));
  EXPECT_EQ(tracks[1].transform, CGAffineTransformMake(0, 1, -1, 0, 360, 2.5));
  EXPECT_EQ(tracks[1].fit, ProjectFit::contain);
  EXPECT_FALSE(tracks[1].mute);
  EXPECT_EQ(tracks[1].pointer, "/instructions/0/tracks/1");
  EXPECT_TRUE(tracks[1].crop->isPercent);
  EXPECT_EQ(tracks[1].crop->rect, CGRectMake(0.25, 0, 0.5, 1));
  EXPECT_EQ(tracks[2].type, ProjectTrackType::image);
  EXPECT_EQ(exactTextFromTime(tracks[2].duration), "3/2");
  EXPECT_FALSE(tracks[2].crop->isPercent);
  EXPECT_EQ(tracks[3].type, ProjectTrackType::text);
  EXPECT_EQ(tracks[3].font, "Serif Bold 20");
  EXPECT_EQ(tracks[3].colorRGBA, 0x10ab3080U);
  EXPECT_EQ(tracks[3].position, CGPointMake(4, 5.5));
  EXPECT_EQ(tracks[4].colorRGBA, 0xfedcbaffU);
}

TEST_F(ProjectFileTest, NotesWhatIsWrongWithATrackAndWhere) {
  const std::string beyond = "reaches beyond the picture: \"percent\" counts in fractions from 0 to 1";
  const std::pair<std::string, std::string> rows[] = {
      {R"("start":-1)", "/start: the time is negative"},
      {R"("leftTrim":"0.5")", "/leftTrim: \"0.5\" is no time: \"N\" or \"N/D\" in whole numbers"},
      {R"("start":null)", "/start: must be a time: seconds as a number, or an exact string \"N\" or \"N/D\""},
      {R"("fit":"stretch")", "/fit: \"stretch\" is none of \"contain\", \"cover\", \"none\""},
      {R"("fit":1)", "/fit: must be a string, not number"},
      {R"("fit":"none","transform":[1,0,0,1,0,0])", ": \"fit\" and \"transform\" cannot both be given"},
      {R"("transform":[1,0,0,1,0])", "/transform: must be an array of 6 numbers"},
      {R"("mute":0)", "/mute: must be true or false, not number"},
      {R"("type":"sound")", "/type: \"sound\" is none of \"media\", \"image\", \"text\""},
      {R"("speed":"2")", "/speed: must be a number or a curve, not string"},
      {R"("a/b~c":3)", "/a~1b~0c: \"a/b~c\" is no key of a media track"},
      {R"("mute":true,"mute":false)", "/mute: the key \"mute\" stands here twice"},
      {R"("crop":{})", "/crop: needs either \"percent\" or \"absolute\""},
      {R"("crop":{"percent":[0,0,1,1],"absolute":[0,0,9,9]})", "/crop: needs either \"percent\" or \"absolute\""},
      {R"("crop":{"absolute":[0,0,9,9],"angle":90})", "/crop/angle: \"angle\" is no key of a crop"},
      {R"("crop":{"percent":[0.5,0,0.6,1]})", "/crop/percent: " + beyond},
      {R"("crop":{"absolute":[0,0,0,9]})", "/crop/absolute: must be [x, y, width, height] with x and y from 0 and a size above 0"},
      {R"("type":"image","fit":"none")", ": the key \"duration\" is missing"},
      {R"("type":"image","duration":0)", "/duration: must be longer than 0"},
      {R"("type":"image","duration":1,"mute":true)", "/mute: \"mute\" is no key of an image track"},
  };
  for (const auto& [members, problem] : rows) {
    EXPECT_THAT(problemsOf(withTrack(members)), ::testing::ElementsAre("/instructions/0/tracks/0" + problem)) << members;
  }
}

TEST_F(ProjectFileTest, NotesWhatIsWrongWithATextAndWhere) {
  const std::pair<std::string, std::string> rows[] = {
      {R"("duration":1)", ": the key \"text\" is missing"},
      {R"("text":" \n","duration":1)", "/text: must be a text with something to see, without NUL characters"},
      {R"("text":"a","duration":1,"color":"red")", "/color: must be a colour \"#rrggbb\" or \"#rrggbbaa\""},
      {R"("text":"a","duration":1,"color":"#12345g")", "/color: must be a colour \"#rrggbb\" or \"#rrggbbaa\""},
      {R"("text":"a","duration":1,"source":"a.mp4")", "/source: \"source\" is no key of a text track"},
  };
  for (const auto& [members, problem] : rows) {
    const std::string track = R"({"id":1,"type":"text",)" + members + "}";
    EXPECT_THAT(problemsOf(withTracks(track)), ::testing::ElementsAre("/instructions/0/tracks/0" + problem)) << members;
  }
}

TEST_F(ProjectFileTest, ReadsConstantSpeedsAndCurves) {
  const auto constant = read(withTrack(R"("speed":2.5)"));
  EXPECT_EQ(std::get<double>(*constant->instructions[0].tracks[0].speed), 2.5);

  const auto drawn = read(withTrack(R"("speed":{"box":[10,20,400,200],"offsets":[0.5,"1/3"],
    "points":[{"x":0,"y":120},{"x":0.25,"y":60},{"x":1,"y":220}],
    "curves":[[[10,120],[20,120],[30,60],[110,60]],[[110,60],[150,60],[200,220],[410,220]]]})"));
  ASSERT_TRUE(drawn) << problems_.front().text();
  const auto context = scaleContextOf(*drawn->instructions[0].tracks[0].speed);
  EXPECT_EQ(context->box(), CGRectMake(10, 20, 400, 200));
  EXPECT_EQ(exactTextFromTime(context->offsets().leftOffset), "1/2");
  ASSERT_EQ(context->points().size(), 3U);
  EXPECT_EQ(context->points()[1]->center(), CGPointMake(110, 60));
  ASSERT_EQ(context->beziers().size(), 2U);
  EXPECT_EQ(context->beziers()[1]->C2(), CGPointMake(200, 220));

  const auto straight = read(withTrack(R"("speed":{"box":[0,0,90,100],"points":[{"x":0,"y":50},{"x":1,"y":20}]})"));
  const auto lines = scaleContextOf(*straight->instructions[0].tracks[0].speed)->beziers();
  ASSERT_EQ(lines.size(), 1U);
  EXPECT_EQ(lines[0]->C1(), CGPointMake(30, 40));
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
      {box + R"(,"points":[{"x":0,"y":1},{"x":1,"y":"1"}])", "/points/1/y: must be a number, not string"},
      {box + "," + points + R"(,"curves":[[[0,0],[0,0],[0,0]]])", "/curves/0: must be an array of 4 points [x, y]"},
      {box + "," + points + R"(,"offsets":[0])", "/offsets: must be an array of 2 times"},
      {box + "," + points + R"(,"curves":[])", "/curves: must be 1, one between each two points, not 0"},
      {box + "," + points + R"(,"curves":[[[0,0],[0,0],[0,0],[0]]])", "/curves/0/3: must be an array of 2 numbers"},
  };
  for (const auto& [members, problem] : rows) {
    EXPECT_THAT(problemsOf(withTrack("\"speed\":{" + members + "}")), ::testing::ElementsAre(at + problem)) << members;
  }
}

TEST_F(ProjectFileTest, SaysWhatNativeCompositionCannotHonour) {
  const std::string tracks = R"({"id":1,"source":"a.mp4","crop":{"percent":[0,0,1,1]}},
      {"id":2,"type":"image","source":"a.mp4","duration":1}, {"id":3,"type":"text","text":"a","duration":1})";
  EXPECT_THAT(problemsOf(withTracks(tracks)), ::testing::IsEmpty());
  EXPECT_THAT(problemsOf(withTracks(tracks), {.native = true}),
              ::testing::ElementsAre("/instructions/0/tracks/0/crop: \"crop\" is not supported by native composition",
                                     "/instructions/0/tracks/1/type: \"type\": \"image\" is not supported by native composition",
                                     "/instructions/0/tracks/2/type: \"type\": \"text\" is not supported by native composition"));
}

TEST_F(ProjectFileTest, NotesWhatIsWrongWithTheRest) {
  const std::string head = R"({"vidloom":1,"renderSize":[640,360],"fps":30)";
  const auto withInstructions = [&](const std::string& list) { return head + R"(,"instructions":[)" + list + "]}"; };
  const std::pair<std::string, std::string> rows[] = {
      {"[]", ": must be an object, not array"},
      {R"({"renderSize":[640,360],"fps":30,"instructions":[]})", ": the key \"vidloom\" is missing"},
      {R"({"vidloom":2,"renderSize":[640,360],"fps":30,"instructions":[]})",
       "/vidloom: version 2 of project files is not known; this is version 1"},
      {R"({"vidloom":1,"renderSize":[640.5,360],"fps":30,"instructions":[]})",
       "/renderSize: width and height must be whole numbers from 2 to 8192"},
      {R"({"vidloom":1,"renderSize":[640,360],"fps":24,"instructions":[]})", "/fps: must be 15, 25, 30 or 60, not 24"},
      {head + R"(,"instructions":{}})", "/instructions: must be an array, not object"},
      {head + R"(,"instructions":[],"tracks":[]})", "/tracks: \"tracks\" is no key of a project"},
      {withInstructions("7"), "/instructions/0: must be an object, not number"},
      {withInstructions(R"({"id":-1})"), "/instructions/0/id: must be a whole number that is not negative"},
      {withInstructions(R"({"id":1,"end":2})"), "/instructions/0/end: \"end\" is no key of an instruction"},
      {withInstructions(R"({"id":1},{"id":1})"), "/instructions/1/id: another instruction has the id 1 too"},
      {withTracks(R"({"source":"a.mp4"})"), "/instructions/0/tracks/0: the key \"id\" is missing"},
      {withTracks(R"({"id":1,"source":""})"), "/instructions/0/tracks/0/source: must be the path of a file"},
      {withTracks(R"({"id":1,"source":"gone.mp4"})"), "/instructions/0/tracks/0/source: gone.mp4: the file does not exist"},
  };
  for (const auto& [json, problem] : rows) EXPECT_THAT(problemsOf(json), ::testing::ElementsAre(problem)) << json;
}

TEST_F(ProjectFileTest, FindsAllProblemsInOnePass) {
  EXPECT_THAT(problemsOf(R"({"vidloom":1,"renderSize":"big","fps":24,"extra":0,"instructions":[
                {"id":1,"tracks":[{"id":1,"source":"a.mp4","start":-1},{"id":1,"fit":"all","source":"gone.mp4"}]}]})"),
              ::testing::SizeIs(7));
}

TEST_F(ProjectFileTest, SaysWhereAFileStopsBeingJson) {
  const auto texts = problemsOf("{\"vidloom\":1,\n \"fps\":}");
  ASSERT_EQ(texts.size(), 1U);
  EXPECT_THAT(texts[0], ::testing::AllOf(::testing::HasSubstr("not valid JSON"), ::testing::HasSubstr("line 2")));
  EXPECT_THAT(problemsOf(""), ::testing::SizeIs(1));
  EXPECT_THAT(problemsOf(std::string(100'000, '[')), ::testing::SizeIs(1));
  EXPECT_THAT(problemsOf("{\"vidloom\":1e999}"), ::testing::SizeIs(1));
}

TEST_F(ProjectFileTest, RefusesWhatIsNoRegularFile) {
  for (const auto& [path, cause] : {std::pair{root_ / "project/none.json", "No such file"}, {root_ / "project", "regular"}}) {
    problems_.clear();
    EXPECT_FALSE(ProjectFile::read(path, {}, problems_));
    ASSERT_EQ(problems_.size(), 1U);
    EXPECT_THAT(problems_[0].text(), ::testing::AllOf(::testing::StartsWith(path.string() + ":/: "), ::testing::HasSubstr(cause)));
  }
}

TEST_F(ProjectFileTest, KeepsSourcesInItsFolderWhateverWayTheyLeave) {
  fs::create_symlink(root_ / "outside.mp4", root_ / "project/link.mp4");
  fs::create_directory_symlink(root_, root_ / "project/up");
  fs::create_symlink("a.mp4", root_ / "project/inside.mp4");
  const std::string cause = " lies outside the project's folder (--allow-outside permits that)";
  const std::string absolute = root_ / "outside.mp4";
  for (const std::string source : {"../outside.mp4", "link.mp4", "up/outside.mp4", "../project-b/a.mp4", absolute.c_str()}) {
    EXPECT_THAT(problemsOf(withTracks(R"({"id":1,"source":")" + source + "\"}")),
                ::testing::ElementsAre("/instructions/0/tracks/0/source: " + source + cause));
  }
  EXPECT_THAT(problemsOf(withTracks(R"({"id":1,"source":"../outside.mp4"})"), {.allowOutside = true}), ::testing::IsEmpty());
  for (const std::string source : {"inside.mp4", "../project/a.mp4"}) {
    EXPECT_THAT(problemsOf(withTracks(R"({"id":1,"source":")" + source + "\"}")), ::testing::IsEmpty());
  }
}

}  // namespace
}  // namespace vidloom
