#include <memory>
#include <string>

#include "hostkit/TimeText.h"
#include "tools/Commands.h"
#include "tools/Console.h"
#include "tools/ExportOptions.h"
#include "tools/ExportRun.h"

namespace vidloom {
namespace {

const std::vector<std::string> kPresets = {"ultrafast", "superfast", "veryfast", "faster",   "fast",
                                           "medium",    "slow",      "slower",   "veryslow", "placebo"};
constexpr int kMaxCrf = 51;
constexpr int kMaxThreads = 128;

/// The options as they are written on the command line.
struct ExportArguments {
  ExportOptions options;
  std::string exporter = "render";
  std::string range;
  std::string progress;
};

CMTimeRange rangeFromText(const std::string& text) {
  const size_t comma = text.find(',');
  std::string problem = "must be START,DURATION";
  if (comma != std::string::npos) {
    const auto start = timeFromText(text.substr(0, comma), problem);
    const auto duration = start ? timeFromText(text.substr(comma + 1), problem) : std::nullopt;
    if (duration && CMTimeCompare(*duration, kCMTimeZero) > 0) return CMTimeRangeMake(*start, *duration);
    if (duration) problem = "the duration is zero";
  }
  throw CLI::ValidationError("--range", problem);
}

ProgressFormat progressFromText(const std::string& text) {
  if (text == "bar") return ProgressFormat::bar;
  if (text == "json") return ProgressFormat::json;
  if (text == "none") return ProgressFormat::none;
  if (text == "blocks") return ProgressFormat::blocks;
  return Console::isTerminal() ? ProgressFormat::bar : ProgressFormat::blocks;
}

}  // namespace

void addExportCommand(CLI::App& app, CommandRun& run) {
  auto* const command = app.add_subcommand("export", "Write a project's timeline to an MPEG-4 movie (H.264 and AAC)");
  const auto arguments = std::make_shared<ExportArguments>();
  ExportOptions& options = arguments->options;
  command->add_option("PROJECT", options.project, "The project file")->required();
  command->add_option("OUT", options.output, "The movie to write")->required();
  command->add_flag("--native", options.native, "Have the frames composed by the platform: no images, texts and crops");
  command->add_option("--exporter", arguments->exporter, "The exporter to use: render")->check(CLI::IsMember({"render"}));
  command->add_option("--range", arguments->range, "START,DURATION: export this part only; seconds as N, N/D or a decimal number");
  command->add_option("--progress", arguments->progress, "bar, blocks, json or none (default: a bar on a terminal, else blocks)")
      ->check(CLI::IsMember({"bar", "blocks", "json", "none"}));
  command->add_flag("-y", options.overwrite, "Replace an existing output file");
  command->add_option("--crf", options.encoder.crf, "Constant rate factor of x264, 0 (lossless) to 51 (default 20)")
      ->check(CLI::Range(0, kMaxCrf));
  command->add_option("--preset", options.encoder.preset, "Preset of x264 (default veryfast)")->check(CLI::IsMember(kPresets));
  command->add_option("--threads", options.encoder.threads, "Threads of the encoder (default: by machine)")
      ->check(CLI::Range(1, kMaxThreads));
  command->add_flag("--allow-outside", options.allowOutside, "Sources may lie outside the project's folder");
  command->callback([arguments, &run] {
    if (!arguments->range.empty()) arguments->options.range = rangeFromText(arguments->range);
    arguments->options.progress = progressFromText(arguments->progress);
    run = [arguments] { return runExport(arguments->options); };
  });
}

}  // namespace vidloom
