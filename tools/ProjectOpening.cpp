#include "tools/ProjectOpening.h"

#include "hostkit/ProjectTimeline.h"
#include "tools/Console.h"

namespace vidloom {

std::map<uint64_t, std::string> OpenedProject::namesOfTracks() const {
  std::map<uint64_t, std::string> names;
  for (const ProjectInstruction& instruction : file->instructions) {
    for (const ProjectTrack& track : instruction.tracks) names[track.id] = track.path.filename().string();
  }
  return names;
}

OpenedProject openProject(const std::filesystem::path& path, bool allowOutside, bool tellProblems) {
  OpenedProject opened;
  opened.file = ProjectFile::read(path, {.allowOutside = allowOutside}, opened.problems);
  if (opened.file) opened.timeline = timelineOfProject(*opened.file, {}, opened.problems);
  if (tellProblems) {
    for (const ProjectProblem& problem : opened.problems) Console::line(problem.text());
  }
  return opened;
}

}  // namespace vidloom
