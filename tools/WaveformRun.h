#pragma once

#include <cstdint>
#include <filesystem>

#include "tools/ExitCode.h"

namespace vidloom {

/// What `vidloom waveform` was asked to do.
struct WaveformOptions {
  std::filesystem::path media;
  std::filesystem::path output;  ///< .json, .dat, .svg or .png; empty: JSON on standard output
  int64_t count = 0;
  bool wantsPeaks = false;  ///< pairs of minimum and maximum; else levels
  int bits = 16;            ///< of peaks: 8 or 16
};

/// Says what went wrong on standard error.
ExitCode runWaveform(const WaveformOptions& options);

}  // namespace vidloom
