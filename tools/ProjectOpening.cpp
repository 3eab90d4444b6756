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

std::string problemWithReplacing(const std::filesystem::path& output, const ProjectFile& project) {
  if (isSameFile(output, project.file)) return output.string() + ": is the project itself";
  for (const ProjectInstruction& instruction : project.instructions) {
    for (const ProjectTrack& track : instruction.tracks) {
      if (isSameFile(output, track.path)) return output.string() + ": is the source " + track.source + " of the project";
    }
  }
  return "";
}

std::string problemWithFileOf(const ProjectFile& project, const std::filesystem::path& output) {
  const std::string problem = problemWithOutput(output, true);
  return problem.empty() ? problemWithReplacing(output, project) : problem;
}

}  // namespace vidloom
