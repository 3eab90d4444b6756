#pragma once

#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <string>

#include "hostkit/ProjectFile.h"

namespace vidloom {

class LUMComposition;

/// A project with its sources opened; without a timeline where there are problems.
struct OpenedProject {
  std::optional<ProjectFile> file;
  std::shared_ptr<LUMComposition> timeline;
  ProjectProblems problems;

  /// The names of the sources' files by track id.
  std::map<uint64_t, std::string> namesOfTracks() const;
};

/// Reads the project and opens its sources; problems go to standard error where `tellProblems`.
OpenedProject openProject(const std::filesystem::path& path, const ProjectOptions& options, bool tellProblems = true);

/// What is wrong with a project without hasPicture().
inline constexpr const char* kNothingToShow = "there is nothing to show: no track with a picture";

/// Whether there is anything to see on the timeline at any time: a movie of sound alone is not written.
bool hasPicture(const LUMComposition& timeline);

/// Why a file made from that project may not replace this one, the project or one of its sources; empty where it may.
std::string problemWithReplacing(const std::filesystem::path& output, const ProjectFile& project);

/// Why a file made from that project may not be written there, whether or not there is one; empty where it may.
std::string problemWithFileOf(const ProjectFile& project, const std::filesystem::path& output);

}  // namespace vidloom
