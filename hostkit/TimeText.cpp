#include "hostkit/TimeText.h"

#include <charconv>
#include <cmath>
#include <limits>
#include <numeric>

namespace vidloom {
namespace {

constexpr const char* kTooLong = "the time is too long: at most 1000000000 seconds";
constexpr const char* kNegative = "the time is negative";

CMTime reduced(int64_t value, int64_t timescale) {
  const int64_t divisor = std::gcd(value, timescale);
  return CMTimeMake(value / divisor, static_cast<CMTimeScale>(timescale / divisor));
}

/// All of the text as one number.
template <typename Number>
std::optional<Number> wholeNumber(const std::string& text) {
  Number number{};
  const char* const end = text.data() + text.size();
  const auto [rest, failure] = std::from_chars(text.data(), end, number);
  if (failure != std::errc{} || rest != end) return std::nullopt;
  return number;
}

bool hasDigitsOnly(const std::string& text) { return !text.empty() && text.find_first_not_of("0123456789") == std::string::npos; }

}  // namespace

std::optional<CMTime> timeFromSeconds(double seconds, std::string& problem) {
  if (!std::isfinite(seconds) || seconds > static_cast<double>(kMaxTimeTextSeconds)) {
    problem = kTooLong;
    return std::nullopt;
  }
  constexpr int64_t kMicroseconds = 1'000'000;
  const int64_t microseconds = std::llround(seconds * static_cast<double>(kMicroseconds));
  if (seconds < 0) {
    problem = kNegative;
    return std::nullopt;
  }
  return reduced(microseconds, kMicroseconds);
}

std::optional<CMTime> timeFromExactText(const std::string& text, std::string& problem) {
  const size_t slash = text.find('/');
  std::string above = text.substr(0, slash);
  const std::string below = slash == std::string::npos ? "1" : text.substr(slash + 1);
  const bool negative = !above.empty() && above.front() == '-';
  if (negative) above.erase(0, 1);
  if (!hasDigitsOnly(above) || !hasDigitsOnly(below)) {
    problem = "\"" + text + "\" is no time: \"N\" or \"N/D\" in whole numbers";
    return std::nullopt;
  }
  const auto value = wholeNumber<int64_t>(above);
  const auto timescale = wholeNumber<int32_t>(below);
  if (!timescale || *timescale == 0) {
    problem = "the denominator of \"" + text + "\" must lie between 1 and 2147483647";
    return std::nullopt;
  }
  if (negative) {
    problem = kNegative;
    return std::nullopt;
  }
  if (!value || *value / *timescale >= kMaxTimeTextSeconds) {
    problem = kTooLong;
    return std::nullopt;
  }
  return reduced(*value, *timescale);
}

std::optional<CMTime> timeFromText(const std::string& text, std::string& problem) {
  if (const auto seconds = wholeNumber<double>(text)) {
    if (text.find_first_of(".eE") != std::string::npos) return timeFromSeconds(*seconds, problem);
  }
  return timeFromExactText(text, problem);
}

std::string exactTextFromTime(const CMTime& time) {
  if (CMTIME_IS_INVALID(time)) return "invalid";
  if (CMTIME_IS_INDEFINITE(time)) return "indefinite";
  if (!CMTIME_IS_NUMERIC(time)) return "infinite";
  const CMTime shortest = time.timescale > 0 ? reduced(time.value, time.timescale) : time;
  const std::string value = std::to_string(shortest.value);
  return shortest.timescale == 1 ? value : value + "/" + std::to_string(shortest.timescale);
}

}  // namespace vidloom
