#include <filesystem>
#include <memory>
#include <string>

#include "hostkit/TimeText.h"
#include "tools/Commands.h"
#include "tools/FrameRun.h"

namespace vidloom {

void addFrameCommand(CLI::App& app, CommandRun& run) {
  auto* const command = app.add_subcommand("frame", "Write the frame that is on screen at a time");
  const auto options = std::make_shared<FrameOptions>();
  const auto time = std::make_shared<std::string>();
  command->add_option("PROJECT", options->project, "The project file")->required();
  command->add_option("TIME", *time, "Seconds as N, N/D or a decimal number")->required();
  command->add_option("OUT", options->output, "What to write: OUT.png, a picture, or OUT.420f, the planes as they stand")
      ->required();
  command->add_flag("--native", options->native, "Have the frame composed by the platform: no images, texts and crops");
  command->add_flag("--allow-outside", options->allowOutside, "Sources may lie outside the project's folder");
  command->callback([options, time, &run] {
    std::string problem;
    const auto parsed = timeFromText(*time, problem);
    if (!parsed) throw CLI::ValidationError("TIME", problem);
    options->time = *parsed;
    const auto extension = options->output.extension();
    if (extension != ".png" && extension != ".420f") throw CLI::ValidationError("OUT", "must end in .png or .420f");
    run = [options] { return runFrame(*options); };
  });
}

}  // namespace vidloom
