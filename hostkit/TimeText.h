// Times as people and project files write them.
#pragma once

#include <optional>
#include <string>

#include "vidloom/platform/coremedia/CMTime.h"

namespace vidloom {

/// The longest time that is taken: a bit over thirty years.
inline constexpr int64_t kMaxTimeTextSeconds = 1'000'000'000;

/// Seconds rounded to the nearest microsecond and reduced. Nullopt, with the reason in `problem`, for a negative, infinite or
/// too large number.
std::optional<CMTime> timeFromSeconds(double seconds, std::string& problem);

/// An exact time: "N" or "N/D" in seconds, reduced; D up to 2147483647. Nullopt, with the reason in `problem`, for anything else.
std::optional<CMTime> timeFromExactText(const std::string& text, std::string& problem);

/// As on a command line: an exact time or a decimal number of seconds.
std::optional<CMTime> timeFromText(const std::string& text, std::string& problem);

/// "N" or "N/D", as timeFromExactText reads it; "invalid", "indefinite" or "infinite" for times that are no number.
std::string exactTextFromTime(const CMTime& time);

}  // namespace vidloom
