#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "tools/TimelineLayout.h"

namespace vidloom {

/// An SVG picture: a row for each composition track, a box for each track of the timeline with its name and times, a time axis
/// below. Where the speed is not 1 the box shows it over time, and the borders of the segments. `names` are what the tracks are
/// called, by id.
std::string drawingOf(const std::vector<LayoutRow>& rows, const std::map<uint64_t, std::string>& names);

}  // namespace vidloom
