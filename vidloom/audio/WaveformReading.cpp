#include "vidloom/audio/WaveformReading.h"

#include <algorithm>
#include <new>

#include "vidloom/audio/ConsoleLine.h"
#include "vidloom/platform/avfoundation/AVError.h"

namespace vidloom {

namespace {

/// Levels that room is made for before any sound was read: durations may lie.
constexpr int64_t kReservedLevels = int64_t{1} << 20;

int64_t samplesPerLevel(int64_t totalSamples, int64_t count) {
  const int64_t whole = count > 0 ? totalSamples / count : 0;
  return whole < 2 ? 1 : whole;
}

}  // namespace

WaveformReading::WaveformReading(Setup given)
    : setup_(silencedWithAnalyzer(std::move(given))),
      samplesPerLevel_(samplesPerLevel(setup_.totalSamples, setup_.count)),
      levels_(samplesPerLevel_) {
  levels_.reserve(std::min(setup_.totalSamples / samplesPerLevel_, kReservedLevels));
  if (const auto analyzer = setup_.analyzer.lock()) analyzer->samplesPerValue_ = samplesPerLevel_;
}

/// A buffer of sound gives many blocks: each asks for itself whether the analyzer is still there.
WaveformReading::Setup WaveformReading::silencedWithAnalyzer(Setup setup) {
  if (!setup.fft || !setup.fft->eachBlock) return setup;
  setup.fft->eachBlock = [analyzer = setup.analyzer, each = std::move(setup.fft->eachBlock)](const TempiFFT& fft, double start) {
    WaveformAnalyzer::callHost(analyzer, [&](WaveformAnalyzerDelegate*) { each(fft, start); });
  };
  return setup;
}

void WaveformReading::run() {
  try {
    if (!readSamples()) return;
    if (setup_.reader->status() == AVAssetReaderStatusCompleted) return complete();
    const auto cancelled = [] {
      return AVMakeError(AVErrorOperationCancelled, "The reading of the waveform's sound was cancelled");
    };
    const std::optional<NSError> error = setup_.reader->error();
    fail(error ? *error : cancelled());
  } catch (const std::bad_alloc&) {
    levels_.takeLevels();  // gives back what it holds
    fail(AVMakeError(AVErrorOutOfMemory, setup_.fileName + ": no memory for the values of its sound"));
  }
}

bool WaveformReading::readSamples() {
  const std::shared_ptr<AVAssetReaderOutput> output = setup_.reader->outputs().front();
  setup_.reader->startReading();
  while (setup_.reader->status() == AVAssetReaderStatusReading) {
    if (analyzerIsGone()) return false;
    const CMSampleBufferRef sample = output->copyNextSampleBuffer();
    if (!sample) break;
    const CMBlockBufferRef block = CMSampleBufferGetDataBuffer(sample);
    if (!block) break;
    reportProgress(CMSampleBufferGetPresentationTimeStamp(sample));
    take(sample, block);
    CMSampleBufferInvalidate(sample);
  }
  return !analyzerIsGone();
}

void WaveformReading::take(const CMSampleBufferRef& sample, const CMBlockBufferRef& block) {
  size_t byteCount = 0;
  uint8_t* bytes = nullptr;
  CMBlockBufferGetDataPointer(block, 0, nullptr, &byteCount, &bytes);
  const auto* const samples = reinterpret_cast<const int16_t*>(bytes);
  const size_t count = byteCount / sizeof(int16_t);
  levels_.append(samples, count);
  if (!setup_.fft) return;
  const auto* const stream = CMAudioFormatDescriptionGetStreamBasicDescription(CMSampleBufferGetFormatDescription(sample));
  if (stream == nullptr || stream->mChannelsPerFrame == 0) return;
  if (!spectra_) spectra_.emplace(*setup_.fft, static_cast<float>(stream->mSampleRate));
  spectra_->append(samples, count / stream->mChannelsPerFrame, static_cast<int>(stream->mChannelsPerFrame));
}

void WaveformReading::reportProgress(const CMTime& time) {
  const double percent = CMTimeGetSeconds(time) * 100.0 / CMTimeGetSeconds(setup_.duration);
  if (percent > percent_) percent_ = std::min(100.0, percent);
  WaveformAnalyzer::report(setup_.analyzer, [this](auto& delegate) { delegate.waveformAnalyzerProgressUpdate(percent_); });
}

void WaveformReading::complete() {
  WaveformAnalysis analysis;
  analysis.amplitudes = levels_.takeLevels();
  if (setup_.fft) analysis.fft = spectra_ ? spectra_->finish() : std::vector<std::shared_ptr<TempiFFT>>{};
  WaveformAnalyzer::report(setup_.analyzer, [&](auto& delegate) {
    if (analysis.fft) delegate.waveformAnalyzerCompleteAnalysis(analysis);
    delegate.waveformAnalyzerCompleteGenerate(analysis.amplitudes);
  });
}

void WaveformReading::fail(const NSError& error) {
  writeConsoleLine("ERROR: reading waveform audio data has failed " + std::to_string(setup_.reader->status()));
  WaveformAnalyzer::reportFailure(setup_.analyzer, error);
  WaveformAnalyzer::report(setup_.analyzer, [](auto& delegate) { delegate.waveformAnalyzerCompleteGenerate({}); });
}

}  // namespace vidloom
