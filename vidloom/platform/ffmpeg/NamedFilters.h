// The image filters that libavfilter runs for us, under the names that hosts know them by.
#pragma once

#include <functional>
#include <string>
#include <vector>

namespace vidloom {

struct NamedFilterParameter {
  std::string key;
  double defaultValue = 0, minimum = 0, maximum = 0;
  std::string description;
};

struct NamedFilter {
  using Values = std::vector<double>;  ///< in the order of the parameters

  /// What a filter needs to give right results.
  enum class Kind : uint8_t {
    color,      ///< works on every pixel for itself, on colours that are not multiplied by alpha
    detail,     ///< looks at the pixels around, on colours that are not multiplied by alpha; the picture's size stays
    area,       ///< looks at the pixels around, on colours that are multiplied by alpha; the picture grows by the margin
    wholeImage  ///< as `detail`, but multiplied by alpha, and the result depends on where the picture begins
  };

  std::string name;
  std::string description;
  Kind kind = Kind::color;
  std::vector<NamedFilterParameter> parameters;
  std::function<std::string(const Values&)> chain;  ///< in libav's notation
  std::function<int(const Values&)> margin;         ///< how far it looks, in pixels; empty: not at all
};

/// Sorted by name.
const std::vector<NamedFilter>& namedFilters();
/// Null where there is none of that name.
const NamedFilter* namedFilter(const std::string& name);

}  // namespace vidloom
