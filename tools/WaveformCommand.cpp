#include <algorithm>
#include <memory>
#include <string>

#include "tools/Commands.h"
#include "tools/WaveformRun.h"

namespace vidloom {
namespace {

struct WaveformArguments {
  WaveformOptions options;
  std::string format = "levels";
  int bits = 0;
};

void check(WaveformArguments& arguments) {
  WaveformOptions& options = arguments.options;
  const auto extension = options.output.extension();
  options.wantsPeaks = arguments.format == "peaks";
  options.count = std::max<int64_t>(0, options.count);
  if (!options.output.empty() && extension != ".json" && extension != ".dat" && extension != ".svg" && extension != ".png") {
    throw CLI::ValidationError("-o", "must end in .json, .dat, .svg or .png");
  }
  if (extension == ".dat" && !options.wantsPeaks) throw CLI::ValidationError("-o", "a .dat file needs --format peaks");
  if (arguments.bits == 0) return;
  if (!options.wantsPeaks) throw CLI::ValidationError("--bits", "needs --format peaks");
  options.bits = arguments.bits;
}

}  // namespace

void addWaveformCommand(CLI::App& app, CommandRun& run) {
  auto* const command = app.add_subcommand("waveform", "Reduce the sound of a media file to levels or peaks, as data or drawn");
  const auto arguments = std::make_shared<WaveformArguments>();
  WaveformOptions& options = arguments->options;
  command->add_option("MEDIA", options.media, "The media file; its first audio track counts")->required();
  command->add_option("--count", options.count, "How many values to make of the file's duration; 0 or less: one a sample")
      ->required();
  command
      ->add_option(
          "--format", arguments->format,
          "levels: mean decibels, 0 (full scale) to 1 (-50 dB or quieter), all channels in one; peaks: minimum and maximum "
          "of the channels' average (default levels)")
      ->check(CLI::IsMember({"levels", "peaks"}));
  command->add_option("--bits", arguments->bits, "Of peaks: 16, or 8, which is 16 divided by 256 and rounded down (default 16)")
      ->check(CLI::IsMember({8, 16}));
  command->add_option(
      "-o", options.output,
      "OUT.json; OUT.dat, peaks in binary; OUT.svg or OUT.png, a drawing of 1200 x 340 pixels with axes. An existing "
      "file is replaced (default: JSON on standard output)");
  command->callback([arguments, &run] {
    check(*arguments);
    run = [arguments] { return runWaveform(arguments->options); };
  });
}

}  // namespace vidloom
