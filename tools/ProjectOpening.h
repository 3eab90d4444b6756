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

/// Whether there is anything to see on the timeline at any time: a movie of sound alone is not written.
bool hasPicture(const LUMComposition& timeline);

/// Why a file made from that project may not be written there; empty where it may.
std::string problemWithFileOf(const OpenedProject& opened, const std::filesystem::path& project,
                              const std::filesystem::path& output);

}  // namespace vidloom
