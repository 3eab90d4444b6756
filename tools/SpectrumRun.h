#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>

#include "tools/ExitCode.h"

namespace vidloom {

inline constexpr int64_t kMaxBlockSize = 65536;
inline constexpr int64_t kMaxHop = int64_t{1} << 40;
inline constexpr int64_t kMaxBands = 65536;

/// What `vidloom spectrum` was asked to do.
struct SpectrumOptions {
  std::filesystem::path media;
  std::filesystem::path output;  ///< .json or .png; empty: JSON on standard output
  int64_t size = 2048;           ///< a power of two from 2 to kMaxBlockSize
  int64_t hop = 1024;            ///< 1 to kMaxHop
  std::string window = "hanning";
  std::optional<int64_t> bands;  ///< 1 to kMaxBands; unless given 64, or in a picture one for each bin
  float minFrequency = 20, maxFrequency = 20000;
};

/// Says what went wrong on standard error.
ExitCode runSpectrum(const SpectrumOptions& options);

}  // namespace vidloom
