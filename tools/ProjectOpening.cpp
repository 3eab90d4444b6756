#include "tools/ProjectOpening.h"

#include "hostkit/ProjectTimeline.h"
#include "tools/Console.h"

namespace vidloom {

std::map<uint64_t, std::string> OpenedProject::namesOfTracks() const {
  std::map<uint64_t, std::string> names;
  for (const ProjectInstruction& instruction : file->instructions) {
    for (const ProjectTrack& track : instruction.tracks) {
      names[track.id] = track.type == ProjectTrackType::text ? track.text : track.path.filename().string();
    }
  }
  return names;
}

OpenedProject openProject(const std::filesystem::path& path, const ProjectOptions& options, bool tellProblems) {
  OpenedProject opened;
  opened.file = ProjectFile::read(path, options, opened.problems);
  if (opened.file) opened.timeline = timelineOfProject(*opened.file, {}, opened.problems);
  if (tellProblems) {
    for (const ProjectProblem& problem : opened.problems) Console::line(problem.text());
  }
  return opened;
}

}  // namespace vidloom
