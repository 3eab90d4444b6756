#pragma once

#include <filesystem>
#include <string>

#include "vidloom/platform/foundation/NSError.h"

namespace vidloom {

/// What the command ends with.
enum class ExitCode : int {
  done = 0,
  usage = 2,      ///< the command line
  input = 3,      ///< the project or its media
  output = 4,     ///< the file to be written
  codec = 5,      ///< decoding or encoding
  cancelled = 6,  ///< by the user
  limit = 7,      ///< too large for memory or for what is allowed
  internal = 70,
};

/// The code for an error of the library: the outermost error of the chain that says more than "it failed" decides.
ExitCode exitCodeOf(const NSError& error);

/// The descriptions along the chain of underlying errors, each said once.
std::string textOf(const NSError& error);
/// The same after the file's name, where that is not in it.
std::string textOf(const NSError& error, const std::filesystem::path& file);

}  // namespace vidloom
