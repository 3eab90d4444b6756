// Where the marks of an axis stand and what is written beside them.
#pragma once

#include <string>
#include <vector>

namespace vidloom {

struct AxisTick {
  double at = 0;
  std::string label;
};

/// Round numbers of seconds within the range, at most `most` of them where that is 2 or more: "0.05 s" in ranges shorter than two
/// minutes, "1:30" and "1:00:00" in longer ones, "250 h" beyond a hundred hours. Empty for a range without a length.
std::vector<AxisTick> timeTicks(double fromSeconds, double toSeconds, int most);

/// The same for frequencies: "2500 Hz".
std::vector<AxisTick> frequencyTicks(double fromHz, double toHz, int most);

}  // namespace vidloom
