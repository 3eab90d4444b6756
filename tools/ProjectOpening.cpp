#include "tools/ProjectOpening.h"

#include "hostkit/ProjectTimeline.h"
#include "tools/Console.h"
#include "tools/OutputFile.h"
#include "vidloom/timeline/LUMAVAssetTrack.h"
#include "vidloom/timeline/LUMComposition.h"

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

bool hasPicture(const LUMComposition& timeline) {
  for (const auto& track : timeline.allTracks()) {
    const auto media = std::dynamic_pointer_cast<LUMAVAssetTrack>(track);
    if (track->isContentStatic() || (media != nullptr && media->videoTrack() != nullptr)) return true;
  }
  return false;
}

std::string problemWithFileOf(const OpenedProject& opened, const std::filesystem::path& project,
                              const std::filesystem::path& output) {
  const std::string problem = problemWithOutput(output, true);
  if (!problem.empty()) return problem;
  if (isSameFile(output, project)) return output.string() + ": is the project itself";
  for (const ProjectInstruction& instruction : opened.file->instructions) {
    for (const ProjectTrack& track : instruction.tracks) {
      if (isSameFile(output, track.path)) return output.string() + ": is the source " + track.source + " of the project";
    }
  }
  return "";
}

}  // namespace vidloom
