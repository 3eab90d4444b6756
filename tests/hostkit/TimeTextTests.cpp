#include "hostkit/TimeText.h"

#include <gtest/gtest.h>

#include <cmath>

namespace vidloom {
namespace {

TEST(TimeText, ReadsExactTextsAndRefusesEverythingElse) {
  struct Row {
    std::string text;
    std::string time;     ///< exact text of what is read; empty: refused
    std::string problem;  ///< part of what is said about it
  };
  const Row rows[] = {
      {"0", "0", ""},
      {"4/6", "2/3", ""},
      {"30030/1001", "30", ""},
      {"5/2147483647", "5/2147483647", ""},
      {"999999999", "999999999", ""},
      {"1000000000", "", "too long"},
      {"9223372036854775808", "", "too long"},
      {"1/2147483648", "", "between 1 and 2147483647"},
      {"1/0", "", "between 1 and 2147483647"},
      {"-1/2", "", "negative"},
      {"1/-2", "", "no time"},
      {"0.5", "", "no time"},
      {"1 / 2", "", "no time"},
      {"", "", "no time"},
  };
  for (const Row& row : rows) {
    std::string problem;
    const auto time = timeFromExactText(row.text, problem);
    EXPECT_EQ(time ? exactTextFromTime(*time) : "", row.time) << row.text;
    EXPECT_NE(problem.find(row.problem), std::string::npos) << row.text << ": " << problem;
    EXPECT_EQ(problem.empty(), row.problem.empty()) << row.text << ": " << problem;
  }
}

TEST(TimeText, RoundsSecondsToTheNearestMicrosecondAndReducesThem) {
  const std::pair<double, std::string> rows[] = {
      {0.5, "1/2"},
      {1.0 / 3, "333333/1000000"},
      {2.0 / 3, "666667/1000000"},
      {0.0000004, "0"},
      {0.0000006, "1/1000000"},
      {123456789.000001, "123456789000001/1000000"},
      {1e9, "1000000000"},
      {1.1e9, ""},
      {-1e-9, ""},
      {std::nan(""), ""},
      {HUGE_VAL, ""},
  };
  for (const auto& [seconds, text] : rows) {
    std::string problem;
    const auto time = timeFromSeconds(seconds, problem);
    EXPECT_EQ(time ? exactTextFromTime(*time) : "", text) << seconds;
    EXPECT_EQ(problem.empty(), time.has_value()) << seconds;
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
