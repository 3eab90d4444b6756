#pragma once

#include <string>

namespace vidloom {

/// Writes the line to standard error as it is, without the time stamp of the log. Any thread.
void writeConsoleLine(const std::string& line);

}  // namespace vidloom
