#pragma once

#include <functional>
#include <memory>
#include <optional>

#include "hostkit/ProjectFile.h"

namespace vidloom {

class LUMComposition;

/// Opens the sources of a project, each file once, and makes its timeline. Texts are laid out. An instruction's start is added to
/// the starts of its tracks. Null where a source cannot be used (noted in `problems`, with the file's name and the cause) and where
/// `isCancelled`, asked before each file, said yes. Blocks while files are opened; any one thread.
std::shared_ptr<LUMComposition> timelineOfProject(const ProjectFile& project, const std::function<bool()>& isCancelled,
                                                  ProjectProblems& problems);

}  // namespace vidloom
