#include "hostkit/AxisTicks.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>

#include "hostkit/PlotText.h"
#include "vidloom/platform/foundation/NSLog.h"

namespace vidloom {
namespace {

constexpr double kMinute = 60, kHour = 3600;
constexpr double kLongestInPlainSeconds = 2 * kMinute;
constexpr double kLongestOnTheClock = 100 * kHour;

/// 1, 2 or 5 times a power of ten, not below `rough`.
double roundStep(double rough) {
  const double power = std::pow(10.0, std::floor(std::log10(rough)));
  for (const double factor : {1.0, 2.0, 5.0}) {
    if (factor * power >= rough * (1 - 1e-9)) return factor * power;
  }
  return 10 * power;
}

double clockStep(double rough) {
  constexpr std::array kSteps{1.0,  2.0,  5.0,   10.0,  15.0,  30.0,   60.0,   120.0,  300.0,
                              600., 900., 1800., 3600., 7200., 10800., 21600., 43200., 86400.};
  const auto* const found = std::lower_bound(kSteps.begin(), kSteps.end(), rough);
  return found != kSteps.end() ? *found : kHour * roundStep(rough / kHour);
}

std::string clockText(double seconds) {
  const auto whole = static_cast<int64_t>(std::llround(seconds));
  const int64_t hours = whole / 3600, minutes = whole / 60 % 60, rest = whole % 60;
  if (hours == 0) return NSStringWithFormat("%lld:%02lld", static_cast<long long>(minutes), static_cast<long long>(rest));
  return NSStringWithFormat("%lld:%02lld:%02lld", static_cast<long long>(hours), static_cast<long long>(minutes),
                            static_cast<long long>(rest));
}

template <class Label>
std::vector<AxisTick> ticks(double from, double to, double step, const Label& label) {
  std::vector<AxisTick> result;
  const double slack = 1e-9 * (to - from);
  for (double i = std::ceil((from - slack) / step); i * step <= to + slack; ++i) result.push_back({i * step, label(i * step)});
  return result;
}

double roughStep(double from, double to, int most) { return (to - from) / std::max(1, most - 1); }

bool hasLength(double from, double to) { return std::isfinite(from) && std::isfinite(to) && to > from; }

}  // namespace

std::vector<AxisTick> timeTicks(double fromSeconds, double toSeconds, int most) {
  if (!hasLength(fromSeconds, toSeconds)) return {};
  const double rough = roughStep(fromSeconds, toSeconds, most);
  if (toSeconds < kLongestInPlainSeconds) {
    return ticks(fromSeconds, toSeconds, roundStep(rough), [](double at) { return plotNumber(at, 9) + " s"; });
  }
  const double step = clockStep(rough);
  if (toSeconds < kLongestOnTheClock) return ticks(fromSeconds, toSeconds, step, clockText);
  return ticks(fromSeconds, toSeconds, step, [](double at) { return plotNumber(at / kHour, 3) + " h"; });
}

std::vector<AxisTick> frequencyTicks(double fromHz, double toHz, int most) {
  if (!hasLength(fromHz, toHz)) return {};
  return ticks(fromHz, toHz, roundStep(roughStep(fromHz, toHz, most)), [](double at) { return plotNumber(at, 6) + " Hz"; });
}

}  // namespace vidloom
