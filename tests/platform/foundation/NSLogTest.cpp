#include "vidloom/platform/foundation/NSLog.h"

#include <gmock/gmock.h>

namespace vidloom {
namespace {

using ::testing::MatchesRegex;

TEST(NSLog, WritesOneLineWithTimeProcessAndThreadToStandardError) {
  ::testing::internal::CaptureStderr();
  NSLog("a line with 100% of everything");
  EXPECT_THAT(::testing::internal::GetCapturedStderr(),
              MatchesRegex("[0-9]+-[0-9]+-[0-9]+ [0-9]+:[0-9]+:[0-9]+\\.[0-9]+ platform_foundation_tests?\\[[0-9]+:[0-9]+\\] "
                           "a line with 100% of everything\n"));
}

TEST(NSString, FormatsLikeThePrintfFamily) {
  EXPECT_EQ(NSStringWithFormat("%f %i %lu %s", 0.5, -3, 7ul, std::string(5000, 'x').c_str()),
            "0.500000 -3 7 " + std::string(5000, 'x'));
}

TEST(NSLogDeathTest, AbortsWithTheLine) {
  EXPECT_DEATH(NSLogAndAbort("the operation: the argument is wrong"), "the operation: the argument is wrong");
}

}  // namespace
}  // namespace vidloom
