#include "vidloom/audio/WaveformAnalyzer.h"

#include <algorithm>

#include "vidloom/audio/ConsoleLine.h"
#include "vidloom/audio/SoundFormat.h"
#include "vidloom/audio/WaveformReading.h"
#include "vidloom/platform/avfoundation/AVError.h"
#include "vidloom/platform/avfoundation/AVURLAsset.h"
#include "vidloom/platform/dispatch/dispatch.h"
#include "vidloom/platform/foundation/NSLog.h"

namespace vidloom {

namespace {

/// Towards zero; what is no number is 0.
int64_t wholeNumber(double number) {
  constexpr double kLimit = 0x1p62;
  return number == number ? static_cast<int64_t>(std::clamp(number, -kLimit, kLimit)) : 0;
}

dispatch_queue_t readingQueue() { return dispatch_get_global_queue(QOS_CLASS_USER_INITIATED); }

}  // namespace

std::shared_ptr<WaveformAnalyzer> WaveformAnalyzer::initWithAudioAssetURL(const std::filesystem::path& audioAssetURL,
                                                                          std::optional<NSError>* error) {
  const std::shared_ptr<WaveformAnalyzer> analyzer(new WaveformAnalyzer);
  std::optional<NSError> problem;
  const auto asset = AVURLAsset::initWithURL(audioAssetURL);
  analyzer->assetURL_ = audioAssetURL;
  analyzer->assetReader_ = AVAssetReader::initWithAsset(asset, &problem);
  const auto tracks = asset->tracksWithMediaType(AVMediaTypeAudio);
  if (analyzer->assetReader_ && tracks.empty())
    problem = AVMakeError(AVErrorNoSourceTrack, audioAssetURL.filename().string() + ": has no audio track", audioAssetURL);
  if (error) *error = problem;
  if (problem) {
    writeConsoleLine("ERROR loading asset / audio track");
    return nullptr;
  }
  analyzer->audioAssetTrack_ = tracks.front();
  return analyzer;
}

std::shared_ptr<WaveformAnalyzerDelegate> WaveformAnalyzer::delegate() const {
  const std::lock_guard lock(mutex_);
  return delegate_.lock();
}

void WaveformAnalyzer::setDelegate(const std::shared_ptr<WaveformAnalyzerDelegate>& delegate) {
  const std::lock_guard lock(mutex_);
  delegate_ = delegate;
}

std::optional<NSError> WaveformAnalyzer::error() const {
  const std::lock_guard lock(mutex_);
  return error_;
}

void WaveformAnalyzer::samples(int64_t count) { start(count, std::nullopt); }

void WaveformAnalyzer::samples(int64_t count, const WaveformFFTSetting& fft) { start(count, fft); }

void WaveformAnalyzer::start(int64_t count, std::optional<WaveformFFTSetting> fft) {
  if (hasRun_.exchange(true)) return refuse();
  assetReader_->addOutput(AVAssetReaderTrackOutput::initWithTrack(audioAssetTrack_, sixteenBitSettings()));
  assetReader_->asset()->loadValuesAsynchronouslyForKeys({"duration"}, [weak = weak_from_this(), count, fft = std::move(fft)] {
    std::shared_ptr<WaveformReading> reading;
    if (const auto analyzer = weak.lock()) reading = analyzer->prepareReading(count, fft);
    // Submitted without a hold on the analyzer: this thread may be kept from letting go of it for longer than the reading takes.
    if (reading) dispatch_async(readingQueue(), [reading] { reading->run(); });
  });
}

void WaveformAnalyzer::refuse() {
  const NSError error =
      AVMakeError(AVErrorUnknown,
                  assetURL_.filename().string() + ": a waveform analyzer reads its file once, this is its second run", assetURL_);
  NSLog("WaveformAnalyzer samplesWithCount: " + error.localizedDescription());
  dispatch_async(readingQueue(), [weak = weak_from_this(), error] {
    report(weak, [&](WaveformAnalyzerDelegate& delegate) {
      delegate.waveformAnalyzerFailed(error);
      delegate.waveformAnalyzerCompleteGenerate({});
    });
  });
}

std::shared_ptr<WaveformReading> WaveformAnalyzer::prepareReading(int64_t count, const std::optional<WaveformFFTSetting>& fft) {
  const std::shared_ptr<AVAsset>& asset = assetReader_->asset();
  std::optional<NSError> problem;
  if (asset->statusOfValueForKey("duration", &problem) != AVKeyValueStatusLoaded) {
    writeConsoleLine("failed to load due to: " + (problem ? problem->localizedDescription() : ""));
    reportFailure(weak_from_this(),
                  problem ? *problem
                          : AVMakeError(AVErrorUnknown, assetURL_.filename().string() + ": the duration cannot be had", assetURL_));
    return nullptr;
  }
  WaveformReading::Setup setup;
  setup.analyzer = weak_from_this();
  setup.reader = assetReader_;
  // Not assetURL_, which the host may set meanwhile.
  if (const auto file = std::dynamic_pointer_cast<AVURLAsset>(asset)) setup.fileName = file->URL().filename().string();
  setup.duration = asset->duration();
  setup.totalSamples = totalSamples(setup.duration);
  setup.count = count;
  setup.fft = fft;
  return std::make_shared<WaveformReading>(std::move(setup));
}

int64_t WaveformAnalyzer::totalSamples(const CMTime& duration) const {
  const auto stream = streamDescriptionOf(*audioAssetTrack_);
  if (!stream) return 0;
  const double frames = stream->mSampleRate * static_cast<double>(duration.value) / static_cast<double>(duration.timescale);
  return wholeNumber(static_cast<double>(wholeNumber(frames)) * stream->mChannelsPerFrame);
}

void WaveformAnalyzer::report(const std::weak_ptr<WaveformAnalyzer>& analyzer, const Report& report) {
  callHost(analyzer, [&](WaveformAnalyzerDelegate* delegate) {
    if (delegate) report(*delegate);
  });
}

void WaveformAnalyzer::callHost(const std::weak_ptr<WaveformAnalyzer>& analyzer, const HostCall& call) {
  std::shared_ptr<std::mutex> mutex;
  if (const auto alive = analyzer.lock()) mutex = alive->callMutex_;
  if (!mutex) return;
  // Let go of last: who waits for it must not find what only this call keeps.
  const std::lock_guard lock(*mutex);
  const auto alive = analyzer.lock();
  if (!alive) return;
  const auto delegate = alive->delegate();
  call(delegate.get());
}

void WaveformAnalyzer::reportFailure(const std::weak_ptr<WaveformAnalyzer>& analyzer, const NSError& error) {
  if (const auto alive = analyzer.lock()) {
    const std::lock_guard lock(alive->mutex_);
    alive->error_ = error;
  }
  report(analyzer, [&](WaveformAnalyzerDelegate& delegate) { delegate.waveformAnalyzerFailed(error); });
}

}  // namespace vidloom
