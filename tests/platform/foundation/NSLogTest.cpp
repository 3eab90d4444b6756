#include "vidloom/platform/foundation/NSLog.h"

#include <gmock/gmock.h>

namespace vidloom {
namespace {

using ::testing::ElementsAre;
using ::testing::MatchesRegex;

TEST(NSLog, GoesToTheSinkAsLongAsThereIsOne) {
  std::vector<std::string> outer, inner;
  NSLogSetSink([&](const std::string& line) { outer.push_back(line); });
  NSLog("1");
  const NSLogSink before = NSLogSetSink([&](const std::string& line) { inner.push_back(line); });
  NSLog("2 100%s");
  NSLogSetSink(before);
  NSLog("3");
  NSLogSetSink(nullptr);
  EXPECT_THAT(outer, ElementsAre("1", "3"));
  EXPECT_THAT(inner, ElementsAre("2 100%s"));
}

TEST(NSLog, WritesOneLineWithTimeProcessAndThreadToStandardError) {
  ::testing::internal::CaptureStderr();
  NSLog("a line with 100% of everything");
  EXPECT_THAT(::testing::internal::GetCapturedStderr(),
              MatchesRegex("[0-9]+-[0-9]+-[0-9]+ [0-9]+:[0-9]+:[0-9]+\\.[0-9]+ platform_foundation_tests?\\[[0-9]+:[0-9]+\\] "
                           "a line with 100% of everything\n"));
}

TEST(NSString, FormatsLikeThePrintfFamily) {
  EXPECT_EQ(NSStringWithFormat("%f %i %lu %s", 0.5, -3, 7ul, "text"), "0.500000 -3 7 text");
  EXPECT_EQ(NSStringWithFormat("%s", std::string(5000, 'x').c_str()), std::string(5000, 'x'));
  EXPECT_EQ(NSStringWithFormat("%s", ""), "");
}

TEST(NSLogDeathTest, AbortsWithTheLine) {
  EXPECT_DEATH(NSLogAndAbort("the operation: the argument is wrong"), "the operation: the argument is wrong");
}

}  // namespace
}  // namespace vidloom
