// A host that notes down what a waveform analyzer tells it.
#pragma once

#include <functional>
#include <mutex>
#include <vector>

#include "vidloom/audio/WaveformAnalyzer.h"
#include "vidloom/platform/dispatch/RunLoop.h"
#include "vidloom/platform/dispatch/dispatch.h"

namespace vidloom::testing {

class WaveformRecorder : public WaveformAnalyzerDelegate {
 public:
  void waveformAnalyzerProgressUpdate(double percent) override {
    progress.push_back(percent);
    isOnReadingQueue = isOnReadingQueue && dispatch_queue_is_current(dispatch_get_global_queue(QOS_CLASS_USER_INITIATED));
    if (onProgress) onProgress();
  }
  void waveformAnalyzerCompleteAnalysis(const WaveformAnalysis& result) override { analyses.push_back(result); }
  void waveformAnalyzerFailed(const NSError& error) override { errors.push_back(error); }
  void waveformAnalyzerCompleteGenerate(const std::vector<float>& values) override {
    isOnReadingQueue = isOnReadingQueue && dispatch_queue_is_current(dispatch_get_global_queue(QOS_CLASS_USER_INITIATED));
    lists.push_back(values);
    dispatch_semaphore_signal(completed);
  }
  /// False where no list comes within a minute.
  bool wait() const { return dispatch_semaphore_wait(completed, dispatch_time(DISPATCH_TIME_NOW, 60'000'000'000)) == 0; }

  std::function<void()> onProgress;
  std::vector<double> progress;
  std::vector<WaveformAnalysis> analyses;
  std::vector<NSError> errors;
  std::vector<std::vector<float>> lists;
  bool isOnReadingQueue = true;
  dispatch_semaphore_t completed = dispatch_semaphore_create(0);
};

/// Looks again and again, for a minute at most.
inline bool eventually(const std::function<bool()>& predicate) {
  constexpr uint64_t kMillisecondNs = 1'000'000;
  bool isSo = predicate();
  for (int i = 0; i < 60'000 && !isSo; ++i) isSo = RunLoop::main().runUntil(predicate, kMillisecondNs);
  return isSo;
}

struct Waveform {
  std::vector<float> values;
  int64_t samplesPerValue = 0;
};

/// Analyzes a file; nothing where it cannot be opened.
inline Waveform waveformOf(const std::filesystem::path& file, int64_t count) {
  const auto analyzer = WaveformAnalyzer::initWithAudioAssetURL(file);
  if (!analyzer) return {};
  const auto recorder = std::make_shared<WaveformRecorder>();
  analyzer->setDelegate(recorder);
  analyzer->samples(count);
  if (!recorder->wait()) return {};
  return {recorder->lists.front(), analyzer->samplesPerValue()};
}

}  // namespace vidloom::testing
