#pragma once

#include <filesystem>
#include <optional>

#include "tools/ExportProgress.h"
#include "vidloom/platform/coremedia/CMTimeRange.h"
#include "vidloom/platform/ffmpeg/MovieWriter.h"

namespace vidloom {

/// What `vidloom export` was asked to do.
struct ExportOptions {
  std::filesystem::path project;
  std::filesystem::path output;
  bool overwrite = false;
  bool allowOutside = false;
  bool native = false;               ///< frames are made by the platform; else by the host kit's drawer
  std::optional<CMTimeRange> range;  ///< of the timeline; all of it unless given
  ProgressFormat progress = ProgressFormat::blocks;
  VideoEncoderOptions encoder;
};

}  // namespace vidloom
