// What a waveform analyzer tells its host.
#pragma once

#include <vector>

#include "vidloom/audio/WaveformAnalysis.h"
#include "vidloom/platform/foundation/NSError.h"

namespace vidloom {

/// Everything is called on the analyzer's queue, one call at a time. The analyzer lives on until a call returns, so none may wait
/// for it to be gone.
class WaveformAnalyzerDelegate {
 public:
  virtual ~WaveformAnalyzerDelegate() = default;
  /// How much of the file has been read, in percent, 0 to 100, never less than before.
  virtual void waveformAnalyzerProgressUpdate(double percent) = 0;
  /// The levels, 0 (full scale) to 1 (-50 dB or quieter); empty where reading failed. Called once, last of all.
  virtual void waveformAnalyzerCompleteGenerate(const std::vector<float>& values) = 0;
  /// Levels and spectra, before waveformAnalyzerCompleteGenerate; only where spectra were asked for, and reading has not failed.
  virtual void waveformAnalyzerCompleteAnalysis(const WaveformAnalysis&) {}
  /// Why the list will be empty, or why there will be none: where the duration cannot be had, this is the only call.
  virtual void waveformAnalyzerFailed(const NSError&) {}
};

}  // namespace vidloom
