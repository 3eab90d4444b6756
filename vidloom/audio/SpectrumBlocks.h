// From sound to the spectra of overlapping blocks.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "vidloom/audio/WaveformAnalysis.h"

namespace vidloom {

/// Does what a WaveformFFTSetting says; see there. One thread at a time.
class SpectrumBlocks {
 public:
  /// Stops the program for a setting that TempiFFT refuses and for a hop below 1.
  SpectrumBlocks(WaveformFFTSetting setting, float sampleRate);

  void append(const int16_t* interleaved, size_t frameCount, int channels);
  /// The sound has ended: the last block. Takes out what was gathered.
  std::vector<std::shared_ptr<TempiFFT>> finish();

 private:
  void addMono(const int16_t* interleaved, size_t frameCount, int channels);
  void transformFullBlocks();
  /// Of the samples from `from` on; what is missing to a block is silence.
  void transform(size_t from);

  const WaveformFFTSetting setting_;
  const double sampleRate_;
  std::shared_ptr<TempiFFT> fft_;
  std::vector<std::shared_ptr<TempiFFT>> gathered_;
  std::vector<float> waiting_;  ///< sound from the next block's beginning on
  std::vector<float> block_;
  int64_t blockCount_ = 0;
  size_t toSkip_ = 0;  ///< samples before the next block, where blocks do not touch
};

}  // namespace vidloom
