// One run of a waveform analyzer: its reading step.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "vidloom/audio/LevelReducer.h"
#include "vidloom/audio/SpectrumBlocks.h"
#include "vidloom/audio/WaveformAnalyzer.h"
#include "vidloom/platform/coremedia/CMSampleBuffer.h"

namespace vidloom {

/// Reads, reduces and reports. Keeps the reader but not the analyzer: once that is gone it stops and says nothing more.
class WaveformReading {
 public:
  struct Setup {
    std::weak_ptr<WaveformAnalyzer> analyzer;
    std::shared_ptr<AVAssetReader> reader;  ///< with one output, not started
    std::string fileName;                   ///< for errors
    CMTime duration;                        ///< of the asset
    int64_t totalSamples = 0;               ///< interleaved samples in the duration
    int64_t count = 0;                      ///< how many levels are wanted
    std::optional<WaveformFFTSetting> fft;
  };
  explicit WaveformReading(Setup given);

  /// Reads to the end and reports the result. Blocks.
  void run();

 private:
  static Setup silencedWithAnalyzer(Setup setup);
  /// False once the analyzer is gone.
  bool readSamples();
  void take(const CMSampleBufferRef& sample, const CMBlockBufferRef& block);
  void reportProgress(const CMTime& time);
  void complete();
  void fail(const NSError& error);
  bool analyzerIsGone() const { return setup_.analyzer.expired(); }

  const Setup setup_;
  const int64_t samplesPerLevel_;
  LevelReducer levels_;
  std::optional<SpectrumBlocks> spectra_;
  double percent_ = 0;
};

}  // namespace vidloom
