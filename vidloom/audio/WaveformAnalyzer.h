// The waveform of a media file, for drawing.
#pragma once

#include <atomic>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>

#include "vidloom/audio/WaveformAnalysis.h"
#include "vidloom/audio/WaveformAnalyzerDelegate.h"
#include "vidloom/platform/avfoundation/AVAssetReader.h"
#include "vidloom/platform/foundation/NSDictionary.h"

namespace vidloom {

class WaveformReading;

/// Reads the sound of a media file once, from start to end, and reduces it to levels. The file is streamed. All channels count as
/// one stream of samples. May be dropped at any moment: reading then stops, and nothing is reported any more.
class WaveformAnalyzer : public std::enable_shared_from_this<WaveformAnalyzer> {
 public:
  /// Opens the file, which may scan it. Null where it cannot be read or has no sound: prints so on standard error, and *error,
  /// where one is wanted, names file and cause.
  static std::shared_ptr<WaveformAnalyzer> initWithAudioAssetURL(const std::filesystem::path& audioAssetURL,
                                                                 std::optional<NSError>* error = nullptr);

  const std::shared_ptr<AVAssetReader>& assetReader() const { return assetReader_; }
  /// The first of the file's audio tracks.
  const std::shared_ptr<AVAssetTrack>& audioAssetTrack() const { return audioAssetTrack_; }
  /// For the host; never looked at.
  NSDictionary& userInfo() { return userInfo_; }
  void setUserInfo(NSDictionary userInfo) { userInfo_ = std::move(userInfo); }
  const std::filesystem::path& assetURL() const { return assetURL_; }
  void setAssetURL(std::filesystem::path assetURL) { assetURL_ = std::move(assetURL); }
  /// Null when it is gone. Any thread.
  std::shared_ptr<WaveformAnalyzerDelegate> delegate() const;
  /// Held weakly. Any thread.
  void setDelegate(const std::shared_ptr<WaveformAnalyzerDelegate>& delegate);

  /// Starts the analysis and returns at once; the delegate hears of it. A level is the mean, in decibels, of
  /// samplesPerValue() = floor(samples in the duration / count) samples (1 or more), so there are as many levels as that goes into
  /// the samples that are decoded: about `count`, or one a sample for a count of 0 (or below) or above the number of samples.
  /// An analyzer runs once: a second call is logged and gives an empty list.
  void samples(int64_t count);
  /// The same, with spectra of the sound in waveformAnalyzerCompleteAnalysis.
  void samples(int64_t count, const WaveformFFTSetting& fft);

  /// Interleaved samples that make a level; 0 before it is known. Any thread.
  int64_t samplesPerValue() const { return samplesPerValue_; }
  /// Why there is no result; nullopt otherwise. Any thread.
  std::optional<NSError> error() const;

 protected:
  WaveformAnalyzer() = default;

 private:
  friend class WaveformReading;
  using Report = std::function<void(WaveformAnalyzerDelegate& delegate)>;
  using HostCall = std::function<void(WaveformAnalyzerDelegate* delegate)>;
  void start(int64_t count, std::optional<WaveformFFTSetting> fft);
  /// Null, with a report, where the duration has not loaded.
  std::shared_ptr<WaveformReading> prepareReading(int64_t count, const std::optional<WaveformFFTSetting>& fft);
  void refuse();
  int64_t totalSamples(const CMTime& duration) const;
  /// Where the analyzer and its delegate are still there. Not with a lock held that the host could want.
  static void report(const std::weak_ptr<WaveformAnalyzer>& analyzer, const Report& report);
  /// Where the analyzer is still there, once no other call is under way; null where the delegate is gone.
  static void callHost(const std::weak_ptr<WaveformAnalyzer>& analyzer, const HostCall& call);
  static void reportFailure(const std::weak_ptr<WaveformAnalyzer>& analyzer, const NSError& error);

  std::shared_ptr<AVAssetReader> assetReader_;
  std::shared_ptr<AVAssetTrack> audioAssetTrack_;
  NSDictionary userInfo_;
  std::filesystem::path assetURL_;
  mutable std::mutex mutex_;
  std::weak_ptr<WaveformAnalyzerDelegate> delegate_;
  std::optional<NSError> error_;
  /// One call at a time. Shared, for whoever waits for it must not keep the analyzer.
  const std::shared_ptr<std::mutex> callMutex_ = std::make_shared<std::mutex>();
  std::atomic<int64_t> samplesPerValue_{0};
  std::atomic<bool> hasRun_{false};
};

}  // namespace vidloom
