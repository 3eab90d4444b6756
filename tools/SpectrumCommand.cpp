#include <cmath>
#include <memory>
#include <string>

#include "tools/Commands.h"
#include "tools/SpectrumRun.h"

namespace vidloom {
namespace {

void check(const SpectrumOptions& options) {
  const auto extension = options.output.extension();
  if (!options.output.empty() && extension != ".json" && extension != ".png") {
    throw CLI::ValidationError("-o", "must end in .json or .png");
  }
  const bool isPowerOfTwo = (options.size & (options.size - 1)) == 0;
  if (!isPowerOfTwo) throw CLI::ValidationError("--size", "must be a power of two from 2 to 65536");
  if (!std::isfinite(options.minFrequency) || options.minFrequency < 0) {
    throw CLI::ValidationError("--min", "must be a number of Hz, 0 or more");
  }
  if (!std::isfinite(options.maxFrequency) || options.maxFrequency <= options.minFrequency) {
    throw CLI::ValidationError("--max", "must be a number of Hz above --min");
  }
}

}  // namespace

void addSpectrumCommand(CLI::App& app, CommandRun& run) {
  auto* const command =
      app.add_subcommand("spectrum", "Transform the sound of a media file block by block: powers as data, or a spectrogram");
  const auto options = std::make_shared<SpectrumOptions>();
  command->add_option("MEDIA", options->media, "The media file; its first audio track counts, channels averaged to one")
      ->required();
  command->add_option("--size", options->size, "Samples of a block: a power of two from 2 to 65536 (default 2048)")
      ->check(CLI::Range(int64_t{2}, kMaxBlockSize));
  command->add_option("--hop", options->hop, "Samples from one block's beginning to the next one's (default 1024)")
      ->check(CLI::Range(int64_t{1}, kMaxHop));
  command->add_option("--window", options->window, "none, hanning or hamming (default hanning)")
      ->check(CLI::IsMember({"none", "hanning", "hamming"}));
  command
      ->add_option("--bands", options->bands,
                   "Bands of equal width between --min and --max, each the mean power of its bins (default 64; in pictures one for "
                   "each bin, the largest of a row of pixels counting)")
      ->check(CLI::Range(int64_t{1}, kMaxBands));
  command->add_option("--min", options->minFrequency, "Lowest frequency in Hz (default 20)");
  command->add_option("--max", options->maxFrequency, "Highest frequency in Hz, half the sampling rate at most (default 20000)");
  command->add_option("-o", options->output,
                      "OUT.json, or OUT.png, a picture of 1180 x 630 pixels with axes and a scale of colours. An existing file is "
                      "replaced (default: JSON on standard output)");
  command->callback([options, &run] {
    check(*options);
    run = [options] { return runSpectrum(*options); };
  });
}

}  // namespace vidloom
