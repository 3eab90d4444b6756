// A host that notes down what a waveform analyzer tells it.
#pragma once

#include <functional>
#include <mutex>
#include <vector>

#include "vidloom/audio/WaveformAnalyzer.h"
#include "vidloom/platform/dispatch/RunLoop.h"
#include "vidloom/platform/dispatch/dispatch.h"

namespace vidloom::testing {

/// What it noted may be read in one of its own calls, after wait(), and where its mutex is held.
class WaveformRecorder : public WaveformAnalyzerDelegate {
 public:
  void waveformAnalyzerProgressUpdate(double percent) override {
    const std::lock_guard lock(mutex);
    progress.push_back(percent);
    noteQueue();
    if (onProgress) onProgress();
  }
  void waveformAnalyzerCompleteAnalysis(const WaveformAnalysis& result) override {
    const std::lock_guard lock(mutex);
    analyses.push_back(result);
  }
  void waveformAnalyzerFailed(const NSError& error) override {
    const std::lock_guard lock(mutex);
    errors.push_back(error);
  }
  void waveformAnalyzerCompleteGenerate(const std::vector<float>& values) override {
    const std::lock_guard lock(mutex);
    noteQueue();
    lists.push_back(values);
    dispatch_semaphore_signal(completed);
  }
  /// False where no list comes within a minute.
  bool wait() const { return dispatch_semaphore_wait(completed, dispatch_time(DISPATCH_TIME_NOW, 60'000'000'000)) == 0; }

  std::mutex mutex;
  std::function<void()> onProgress;
  std::vector<double> progress;
  std::vector<WaveformAnalysis> analyses;
  std::vector<NSError> errors;
  std::vector<std::vector<float>> lists;
  bool isOnReadingQueue = true;
  dispatch_semaphore_t completed = dispatch_semaphore_create(0);

 private:
  void noteQueue() {
    isOnReadingQueue = isOnReadingQueue && dispatch_queue_is_current(dispatch_get_global_queue(QOS_CLASS_USER_INITIATED));
  }
};

/// Looks again and again, for a minute at most.
inline bool eventually(const std::function<bool()>& predicate) {
  constexpr uint64_t kMillisecondNs = 1'000'000;
  bool isSo = predicate();
  for (int i = 0; i < 60'000 && !isSo; ++i) isSo = RunLoop::main().runUntil(predicate, kMillisecondNs);
  return isSo;
}

/// Whether the reading of an analyzer that is gone comes to its end: it keeps the reader until then.
inline bool endsReading(WaveformRecorder& recorder, const std::weak_ptr<AVAssetReader>& reader) {
  return eventually([&] {
    const std::lock_guard lock(recorder.mutex);
    return reader.expired();
  });
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
