#include <filesystem>
#include <map>
#include <memory>
#include <string>

#include "hostkit/TimeText.h"
#include "tools/Commands.h"
#include "tools/Console.h"
#include "tools/DrawingOrder.h"
#include "tools/ProjectOpening.h"
#include "vidloom/timeline/LUMTrack.h"

namespace vidloom {
namespace {

/// Whether native composition refuses the project anyway.
bool needsDrawing(const ProjectFile& project) {
  for (const ProjectInstruction& instruction : project.instructions) {
    for (const ProjectTrack& track : instruction.tracks) {
      if (track.type != ProjectTrackType::media || track.crop) return true;
    }
  }
  return false;
}

std::string warningsAbout(const OpenedProject& opened) {
  std::map<uint64_t, std::string> pointers;
  for (const ProjectInstruction& instruction : opened.file->instructions) {
    for (const ProjectTrack& track : instruction.tracks) pointers[track.id] = track.pointer;
  }
  std::string text;
  for (const OrderConflict& conflict : orderConflictsOf(opened.timeline)) {
    const uint64_t top = conflict.nativeTop->objectId();
    const ProjectProblem warning{
        opened.file->file, pointers[top],
        "warning: track " + std::to_string(top) + " lies over track " + std::to_string(conflict.drawnTop->objectId()) +
            " with native composition, because it was placed first, and under it where the host draws, because it is listed first; "
            "from " +
            exactTextFromTime(conflict.range.start) + " to " + exactTextFromTime(CMTimeRangeGetEnd(conflict.range)) + " s"};
    text += warning.text() + "\n";
  }
  return text;
}

ExitCode validate(const std::filesystem::path& project, bool allowOutside) {
  OpenedProject opened = openProject(project, {.allowOutside = allowOutside}, false);
  if (opened.timeline != nullptr && !hasPicture(*opened.timeline)) {
    opened.problems.push_back({opened.file->file, "/instructions", kNothingToShow});
  }
  std::string text;
  for (const ProjectProblem& problem : opened.problems) text += problem.text() + "\n";
  if (opened.timeline != nullptr && !needsDrawing(*opened.file)) text += warningsAbout(opened);
  if (!writeToStandardOutput(text)) return ExitCode::output;
  return opened.problems.empty() ? ExitCode::done : ExitCode::input;
}

}  // namespace

void addValidateCommand(CLI::App& app, CommandRun& run) {
  auto* const command = app.add_subcommand("validate", "Print every problem of a project, and what may surprise");
  const auto project = std::make_shared<std::filesystem::path>();
  const auto allowOutside = std::make_shared<bool>(false);
  command->add_option("PROJECT", *project, "The project file")->required();
  command->add_flag("--allow-outside", *allowOutside, "Sources may lie outside the project's folder");
  command->callback([project, allowOutside, &run] { run = [project, allowOutside] { return validate(*project, *allowOutside); }; });
}

}  // namespace vidloom
