#pragma once

#include <filesystem>

#include "tools/ExitCode.h"
#include "vidloom/platform/coremedia/CMTime.h"

namespace vidloom {

/// What `vidloom frame` was asked to do.
struct FrameOptions {
  std::filesystem::path project;
  CMTime time = kCMTimeZero;
  std::filesystem::path output;  ///< .png or .420f
  bool allowOutside = false;
  bool native = false;
};

/// Writes the frame of the last step of the output's grid at or before the time, as an export would hand it to the encoder. Says
/// what went wrong on standard error.
ExitCode runFrame(const FrameOptions& options);

}  // namespace vidloom
