// Project files: a timeline as JSON.
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "hostkit/ProjectProblem.h"
#include "hostkit/ProjectSpeed.h"
#include "vidloom/platform/coregraphics/CGGeometry.h"
#include "vidloom/platform/coremedia/CMTime.h"

namespace vidloom {

/// How a picture is placed in the render size: as large as fits, as small as covers it, or unscaled at the top left.
enum class ProjectFit : uint8_t { contain, cover, none };

enum class ProjectTrackType : uint8_t { media, image, text };

/// What is left of the upright picture, from its top left.
struct ProjectCrop {
  bool isPercent = false;  ///< fractions of its sides, 0 to 1; else pixels
  CGRect rect;
};

struct ProjectTrack {
  uint64_t id = 0;
  ProjectTrackType type = ProjectTrackType::media;
  std::string source;          ///< as written
  std::filesystem::path path;  ///< of the source, links resolved
  CMTime start = kCMTimeZero;  ///< from the start of the instruction
  CMTime leftTrim = kCMTimeZero;
  CMTime rightTrim = kCMTimeZero;
  ProjectFit fit = ProjectFit::contain;
  std::optional<CGAffineTransform> transform;  ///< given instead of a fit
  std::optional<ProjectCrop> crop;
  std::optional<ProjectSpeed> speed;
  bool mute = false;
  CMTime duration = kCMTimeZero;  ///< of images and texts
  std::string text;
  std::string font = "Sans 48";
  uint32_t colorRGBA = 0xffffffff;
  CGPoint position;     ///< of the top left of a text
  std::string pointer;  ///< where the track stands in the file
};

struct ProjectInstruction {
  uint64_t id = 0;
  CMTime start = kCMTimeZero;
  std::vector<ProjectTrack> tracks;
};

struct ProjectOptions {
  bool allowOutside = false;  ///< sources may lie outside the project file's folder
  bool native = false;        ///< for native composition: what that cannot honour is a problem
};

/// What a project file says, checked as far as that goes without opening its sources.
struct ProjectFile {
  std::filesystem::path file;
  CGSize renderSize;
  uint64_t fps = 0;
  std::vector<ProjectInstruction> instructions;

  /// Nullopt where anything is wrong; every problem found is appended to `problems`. Never throws.
  static std::optional<ProjectFile> read(const std::filesystem::path& file, const ProjectOptions& options,
                                         ProjectProblems& problems);
};

}  // namespace vidloom
