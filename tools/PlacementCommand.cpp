#include <filesystem>
#include <memory>
#include <string>

#include "hostkit/TimeText.h"
#include "tools/Commands.h"
#include "tools/Console.h"
#include "tools/DataOutput.h"
#include "tools/ProjectOpening.h"
#include "tools/TimelineDrawing.h"
#include "tools/TimelineLayout.h"
#include "vidloom/timeline/LUMTrack.h"

namespace vidloom {
namespace {

struct PlacementArguments {
  std::filesystem::path project;
  std::filesystem::path svg;
  bool allowOutside = false;
};

std::string textOfRange(const CMTimeRange& range) {
  return exactTextFromTime(range.start) + " +" + exactTextFromTime(range.duration);
}

std::string lineOf(const LayoutRow& row, const LayoutSegment& segment) {
  const std::string head = std::to_string(row.number) + (row.isVideo ? "  video" : "  audio");
  const std::string target = "  target " + textOfRange(segment.target);
  if (segment.track == nullptr) return head + "  empty" + target + "\n";
  return head + "  source " + textOfRange(segment.source) + target + "  track " + std::to_string(segment.track->objectId()) + "\n";
}

ExitCode printPlacement(const PlacementArguments& arguments) {
  const OpenedProject opened = openProject(arguments.project, {.allowOutside = arguments.allowOutside});
  if (opened.timeline == nullptr) return ExitCode::input;
  const std::string problem = arguments.svg.empty() ? "" : problemWithFileOf(*opened.file, arguments.svg);
  if (!problem.empty()) {
    Console::message(problem);
    return ExitCode::output;
  }
  const auto rows = layoutOf(opened.timeline);
  std::string lines;
  for (const LayoutRow& row : rows) {
    for (const LayoutSegment& segment : row.segments) lines += lineOf(row, segment);
  }
  if (!writeToStandardOutput(lines)) return ExitCode::output;
  if (arguments.svg.empty()) return ExitCode::done;
  return writeData(arguments.svg, drawingOf(rows, opened.namesOfTracks()));
}

}  // namespace

void addPlacementCommand(CLI::App& app, CommandRun& run) {
  auto* const command = app.add_subcommand("placement", "Print on which composition track each part of a project comes to lie");
  const auto arguments = std::make_shared<PlacementArguments>();
  command->add_option("PROJECT", arguments->project, "The project file")->required();
  command->add_option("--svg", arguments->svg, "Draw it into this file too");
  command->add_flag("--allow-outside", arguments->allowOutside, "Sources may lie outside the project's folder");
  command->callback([arguments, &run] { run = [arguments] { return printPlacement(*arguments); }; });
}

}  // namespace vidloom
