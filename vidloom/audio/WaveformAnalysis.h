// What an analysis of sound is asked for beside levels, and what it gives.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include "vidloom/audio/TempiFFT.h"

namespace vidloom {

/// Spectra of blocks of sound. Channels are averaged to one; full scale of 16 bits (32768) is amplitude 1. A block begins every
/// `hop` samples, the first with the sound's first sample, until every sample that blocks can reach is in one; what the last block
/// lacks is silence. Each block is windowed, transformed and averaged into bands by a TempiFFT.
struct WaveformFFTSetting {
  int64_t size = 2048;  ///< samples of a block: a power of two from 2 to 65536
  int64_t hop = 1024;   ///< samples from one block's beginning to the next one's: 1 or more
  TempiFFTWindowType windowType = TempiFFTWindowType::hanning;
  int64_t numberOfBands = 64;
  float minFrequency = 20, maxFrequency = 20000;  ///< of the bands, in Hz
  /// When set, takes the blocks one by one and nothing is gathered: for sound of any length. Called in order, on the analyzer's
  /// queue, and no more once the analyzer is gone; `fft` is used again for the next block; `startSeconds` is where the block
  /// begins, counted from the sound's beginning.
  std::function<void(const TempiFFT& fft, double startSeconds)> eachBlock;
};

struct WaveformAnalysis {
  std::vector<float> amplitudes;                              ///< levels, 0 (full scale) to 1 (-50 dB or quieter)
  std::optional<std::vector<std::shared_ptr<TempiFFT>>> fft;  ///< one for each block; absent where none was asked for
};

}  // namespace vidloom
