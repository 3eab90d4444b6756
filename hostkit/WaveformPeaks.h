// The lowest and the highest sample of each stretch of a sound.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include "vidloom/platform/avfoundation/AVURLAsset.h"

namespace vidloom {

struct WaveformPeaks {
  int64_t sampleRate = 0;       ///< in Hz
  int64_t framesPerPixel = 1;   ///< the last pixel may have fewer
  std::vector<int16_t> values;  ///< minimum and maximum by turns, channels averaged to one
};

/// Told how much has been read, in percent, never less than before. Reading stops where it says false.
using WaveformPeaksProgress = std::function<bool(double percent)>;

/// Reads the first audio track of a file once, streaming. A pixel is ceil(frames in the asset's duration / count) frames: 1 at
/// least, as for a count of 0 or below, and 2147483647 at most. Nothing that was decoded is left out: the last pixel takes the
/// rest. Nullopt with an error that names file and cause: where the file cannot be read or has no sound, decoding fails, memory
/// runs out (AVErrorOutOfMemory), or `progress` stopped it (AVErrorOperationCancelled). Blocks; any thread.
[[nodiscard]] std::optional<WaveformPeaks> readWaveformPeaks(const std::shared_ptr<AVURLAsset>& asset, int64_t count,
                                                             const WaveformPeaksProgress& progress, std::optional<NSError>* error);

}  // namespace vidloom
