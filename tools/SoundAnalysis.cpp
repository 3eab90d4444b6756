#include "tools/SoundAnalysis.h"

#include <atomic>
#include <cmath>
#include <utility>

#include "tools/Console.h"
#include "tools/Interruption.h"
#include "tools/OutputFile.h"
#include "vidloom/audio/SoundFormat.h"
#include "vidloom/audio/WaveformAnalyzerDelegate.h"
#include "vidloom/platform/avfoundation/AVAsset.h"
#include "vidloom/platform/dispatch/RunLoop.h"
#include "vidloom/platform/foundation/NSLog.h"

namespace vidloom {
namespace {

/// Keeps what the analyzer says for the main thread.
class AnalysisListener : public WaveformAnalyzerDelegate {
 public:
  void waveformAnalyzerProgressUpdate(double percent) override { showPercent(percent); }

  void waveformAnalyzerCompleteGenerate(const std::vector<float>& values) override {
    levels_ = values;
    end();
  }

  void waveformAnalyzerFailed(const NSError& error) override {
    if (!hasEnded_) error_ = error;
    end();
  }

  bool hasEnded() const { return hasEnded_; }
  // Once it has ended.
  std::vector<float> takeLevels() { return std::move(levels_); }
  const std::optional<NSError>& error() const { return error_; }

 private:
  void end() {
    hasEnded_ = true;
    RunLoop::main().wake();
  }

  std::vector<float> levels_;
  std::optional<NSError> error_;
  std::atomic<bool> hasEnded_{false};
};

}  // namespace

std::string SoundTrack::text() const {
  return NSStringWithFormat("%lld Hz, %lld channel%s", std::llround(sampleRate), static_cast<long long>(channels),
                            channels == 1 ? "" : "s");
}

std::optional<SoundTrack> soundTrackOf(const AVAsset& asset, const AVAssetTrack& track) {
  const auto stream = streamDescriptionOf(track);
  if (!stream || !(stream->mSampleRate > 0) || stream->mChannelsPerFrame == 0) return std::nullopt;
  SoundTrack sound;
  sound.sampleRate = stream->mSampleRate;
  sound.channels = stream->mChannelsPerFrame;
  sound.startSeconds = CMTimeGetSeconds(track.timeRange().start);
  sound.endSeconds = CMTimeGetSeconds(CMTimeRangeGetEnd(track.timeRange()));
  sound.fileEndSeconds = CMTimeGetSeconds(asset.duration());
  return sound;
}

AnalysedSound analyse(std::shared_ptr<WaveformAnalyzer> given, const std::function<void(WaveformAnalyzer&)>& start,
                      const std::function<bool()>& mayGoOn) {
  const std::shared_ptr<WaveformAnalyzer> analyzer = std::move(given);
  const auto listener = std::make_shared<AnalysisListener>();
  analyzer->setDelegate(listener);
  start(*analyzer);
  constexpr uint64_t kLookNs = 50'000'000;  // signals wake nobody
  while (!RunLoop::main().runUntil([&] { return listener->hasEnded(); }, kLookNs)) {
    if (Interruption::count() > 0 || (mayGoOn && !mayGoOn())) break;
  }
  showPercent(-1);
  AnalysedSound sound;
  sound.samplesPerLevel = analyzer->samplesPerValue();
  if (!listener->hasEnded()) return sound;
  if (const auto& error = listener->error()) {
    Console::message(textOf(*error, analyzer->assetURL()));
    sound.code = exitCodeOf(*error);
  } else {
    sound.levels = listener->takeLevels();
  }
  return sound;
}

void showPercent(double percent) {
  static const bool isTerminal = Console::isTerminal();
  static std::atomic<int> shown{-1};
  const int whole = percent < 0 ? -1 : static_cast<int>(percent);
  if (!isTerminal || shown.exchange(whole) == whole) return;
  Console::status(whole < 0 ? "" : NSStringWithFormat("%3d %%", whole));
}

ExitCode writePicture(const CGImageRef& image, const std::filesystem::path& output) {
  if (!image) {
    Console::message("no memory for the picture");
    return ExitCode::limit;
  }
  Interruption::onlyCount();
  std::optional<NSError> error;
  if (CGImageWritePNG(image, behindLink(output), &error)) return ExitCode::done;
  Console::message(textOf(*error, output));
  return ExitCode::output;
}

}  // namespace vidloom
