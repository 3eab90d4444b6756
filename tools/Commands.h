// The subcommands. Each adds itself to the command line; after parsing, `run` of the one that was asked for gives the exit code.
#pragma once

#include <CLI/CLI.hpp>
#include <functional>

#include "tools/ExitCode.h"

namespace vidloom {

using CommandRun = std::function<ExitCode()>;

/// `run` is set when the subcommand was chosen and its options are in order.
void addExportCommand(CLI::App& app, CommandRun& run);
void addProbeCommand(CLI::App& app, CommandRun& run);
void addFrameCommand(CLI::App& app, CommandRun& run);
void addPlacementCommand(CLI::App& app, CommandRun& run);
void addWaveformCommand(CLI::App& app, CommandRun& run);
void addSpectrumCommand(CLI::App& app, CommandRun& run);
void addValidateCommand(CLI::App& app, CommandRun& run);

}  // namespace vidloom
