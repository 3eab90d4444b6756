#include "hostkit/TimeText.h"

#include <gtest/gtest.h>

#include <cmath>

namespace vidloom {
namespace {

TEST(TimeText, ReadsExactTextsAndRefusesEverythingElse) {
  std::string problem;
  const std::pair<std::string, std::string> read[] = {
      {"0", "0"}, {"4/6", "2/3"}, {"30030/1001", "30"}, {"5/2147483647", "5/2147483647"}, {"999999999", "999999999"}};
  for (const auto& [text, time] : read) {
    EXPECT_EQ(exactTextFromTime(timeFromExactText(text, problem).value_or(kCMTimeInvalid)), time) << text;
    EXPECT_EQ(problem, "") << text;
  }
  const std::pair<std::string, std::vector<std::string>> refused[] = {{"too long", {"1000000000", "9223372036854775808"}},
                                                                      {"between 1 and 2147483647", {"1/2147483648", "1/0"}},
                                                                      {"negative", {"-1/2"}},
                                                                      {"no time", {"1/-2", "0.5", "1 / 2", "1/2/3", ""}}};
  for (const auto& [cause, texts] : refused) {
    for (const std::string& text : texts) {
      EXPECT_FALSE(timeFromExactText(text, problem)) << text;
      EXPECT_NE(problem.find(cause), std::string::npos) << text << ": " << problem;
    }
  }
}

TEST(TimeText, RoundsSecondsToTheNearestMicrosecondAndReducesThem) {
  std::string problem;
  const std::pair<double, std::string> read[] = {{0.5, "1/2"},
                                                 {2.0 / 3, "666667/1000000"},
                                                 {0.0000004, "0"},
                                                 {0.0000006, "1/1000000"},
                                                 {123456789.000001, "123456789000001/1000000"},
                                                 {1e9, "1000000000"}};
  for (const auto& [seconds, time] : read) {
    EXPECT_EQ(exactTextFromTime(timeFromSeconds(seconds, problem).value_or(kCMTimeInvalid)), time) << seconds;
  }
  for (const double seconds : {1.1e9, -1e-9, std::nan(""), HUGE_VAL}) {
    problem.clear();
    EXPECT_FALSE(timeFromSeconds(seconds, problem)) << seconds;
    EXPECT_NE(problem, "") << seconds;
  }
}

TEST(TimeText, TakesDecimalNumbersOnTheCommandLineOnly) {
  std::string problem;
  EXPECT_EQ(exactTextFromTime(timeFromText("0.5", problem).value_or(kCMTimeInvalid)), "1/2");
  EXPECT_EQ(exactTextFromTime(timeFromText("1e-3", problem).value_or(kCMTimeInvalid)), "1/1000");
  EXPECT_EQ(exactTextFromTime(timeFromText("1/3", problem).value_or(kCMTimeInvalid)), "1/3");
  EXPECT_EQ(exactTextFromTime(timeFromText("12", problem).value_or(kCMTimeInvalid)), "12");
  for (const char* const text : {"-0.5", "0.5s", "nan", "inf", "0x10", " 1", ""}) {
    problem.clear();
    EXPECT_FALSE(timeFromText(text, problem)) << text;
    EXPECT_FALSE(problem.empty()) << text;
  }
}

}  // namespace
}  // namespace vidloom
