#include <malloc.h>

#include <exception>
#include <string>

#include "tools/Commands.h"
#include "tools/Console.h"
#include "tools/Interruption.h"

namespace vidloom {
namespace {

ExitCode runCommand(int argc, char** argv) {
  CLI::App app("Exports, checks and describes video timelines.", "vidloom");
  app.require_subcommand(1);
  CommandRun run;
  addExportCommand(app, run);
  addFrameCommand(app, run);
  addProbeCommand(app, run);
  addPlacementCommand(app, run);
  addWaveformCommand(app, run);
  addSpectrumCommand(app, run);
  addValidateCommand(app, run);
  try {
    app.parse(argc, argv);
  } catch (const CLI::CallForHelp&) {
    const auto chosen = app.get_subcommands();
    return writeToStandardOutput((chosen.empty() ? app : *chosen.front()).help()) ? ExitCode::done : ExitCode::output;
  } catch (const CLI::ParseError& problem) {
    const auto chosen = app.get_subcommands();
    const std::string name = chosen.empty() ? "vidloom" : "vidloom " + chosen.front()->get_name();
    Console::message(std::string(problem.what()) + "\nTry: " + name + " --help");
    return ExitCode::usage;
  }
  return run();
}

}  // namespace
}  // namespace vidloom

int main(int argc, char** argv) {
  // Frames are made on one thread and dropped on another: with an arena for each thread a fifth more memory stays in use.
  mallopt(M_ARENA_MAX, 1);
  vidloom::Interruption::install();
  vidloom::Console::takeLog();
  try {
    return static_cast<int>(vidloom::runCommand(argc, argv));
  } catch (const std::bad_alloc&) {
    vidloom::Console::message("out of memory");
    return static_cast<int>(vidloom::ExitCode::limit);
  } catch (const std::exception& problem) {
    vidloom::Console::message(std::string("internal error: ") + problem.what());
    return static_cast<int>(vidloom::ExitCode::internal);
  }
}
