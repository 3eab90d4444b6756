// What a reader hands out: frames of one track, composed frames, or mixed sound.
#pragma once

#include <atomic>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "vidloom/platform/avfoundation/AVAudioMix.h"
#include "vidloom/platform/avfoundation/AVMediaFormat.h"
#include "vidloom/platform/avfoundation/AVVideoComposition.h"
#include "vidloom/platform/coremedia/CMSampleBuffer.h"
#include "vidloom/platform/foundation/NSDictionary.h"
#include "vidloom/platform/foundation/NSError.h"

namespace vidloom {

class AVAsset;
class AVAssetReader;
class AVAssetTrack;

/// Produces the samples of one output once reading has begun. One thread pulls; cancel() comes from any.
class SampleSource {
 public:
  virtual ~SampleSource() = default;
  /// The next sample; null at the end, after cancel(), or with *error set on failure.
  virtual CMSampleBufferRef next(std::optional<NSError>* error) = 0;
  /// Makes a running and every later next() return null within 100 ms. Any thread.
  virtual void cancel() = 0;
};

class AVAssetReaderOutput : public std::enable_shared_from_this<AVAssetReaderOutput> {
 public:
  virtual ~AVAssetReaderOutput();
  virtual const AVMediaType& mediaType() const = 0;
  /// Blocks; the next sample in order of time, or null at the end, after a cancellation and on failure (the reader's status tells).
  CMSampleBufferRef copyNextSampleBuffer();
  bool alwaysCopiesSampleData() const { return alwaysCopiesSampleData_; }
  void setAlwaysCopiesSampleData(bool value) { alwaysCopiesSampleData_ = value; }
  /// How many samples were handed out so far. Any thread.
  int64_t deliveredSampleCount() const { return deliveredSamples_; }

 protected:
  friend class AVAssetReader;
  AVAssetReaderOutput() = default;
  /// Whether every track of the output belongs to the asset and its settings make sense.
  virtual bool fitsAsset(const std::shared_ptr<AVAsset>& asset) const = 0;
  /// Called once by startReading; null with an error where the settings do not fit. `range` is finite.
  virtual std::shared_ptr<SampleSource> makeSource(const CMTimeRange& range, std::optional<NSError>* error) = 0;

 private:
  void cancelSource();

  std::weak_ptr<AVAssetReader> reader_;
  std::shared_ptr<SampleSource> source_;  ///< set before the reader's status becomes reading
  std::atomic<bool> ended_{false};
  std::atomic<int64_t> deliveredSamples_{0};
  bool alwaysCopiesSampleData_ = true;
};

/// Decoded samples of one track. Video settings name a pixel format ('BGRA', '420f', '420v') and, where wanted, a size; audio
/// settings linear PCM. Rotation is not applied.
class AVAssetReaderTrackOutput : public AVAssetReaderOutput {
 public:
  static std::shared_ptr<AVAssetReaderTrackOutput> initWithTrack(const std::shared_ptr<AVAssetTrack>& track,
                                                                 const std::optional<NSDictionary>& outputSettings);
  const std::shared_ptr<AVAssetTrack>& track() const { return track_; }
  const std::optional<NSDictionary>& outputSettings() const { return outputSettings_; }
  const AVMediaType& mediaType() const override;

 protected:
  AVAssetReaderTrackOutput() = default;
  bool fitsAsset(const std::shared_ptr<AVAsset>& asset) const override;
  std::shared_ptr<SampleSource> makeSource(const CMTimeRange& range, std::optional<NSError>* error) override;

 private:
  std::shared_ptr<AVAssetTrack> track_;
  std::optional<NSDictionary> outputSettings_;
};

/// Frames of a video composition over the given tracks: at range.start + n x frameDuration, in the settings' pixel format.
class AVAssetReaderVideoCompositionOutput : public AVAssetReaderOutput {
 public:
  static std::shared_ptr<AVAssetReaderVideoCompositionOutput> initWithVideoTracks(
      const std::vector<std::shared_ptr<AVAssetTrack>>& videoTracks, const std::optional<NSDictionary>& videoSettings);
  const std::vector<std::shared_ptr<AVAssetTrack>>& videoTracks() const { return videoTracks_; }
  /// A copy of what was set. Refused (logged, the old one stays) after the start and where size or frame duration are not positive.
  const std::shared_ptr<AVMutableVideoComposition>& videoComposition() const { return videoComposition_; }
  void setVideoComposition(const std::shared_ptr<AVMutableVideoComposition>& videoComposition);
  /// The instance that composes; null for the built-in one.
  const std::shared_ptr<AVVideoCompositing>& customVideoCompositor() const { return compositor_; }
  /// How long a custom compositor may leave every request that it holds unanswered before reading fails with
  /// AVErrorVideoCompositorFailed, which names the frame's time: 10 s unless set. Infinity: for ever. Refused (logged) after the
  /// start and where it is not above zero.
  const CMTime& compositorTimeout() const { return compositorTimeout_; }
  void setCompositorTimeout(const CMTime& timeout);
  const AVMediaType& mediaType() const override;

 protected:
  AVAssetReaderVideoCompositionOutput() = default;
  bool fitsAsset(const std::shared_ptr<AVAsset>& asset) const override;
  std::shared_ptr<SampleSource> makeSource(const CMTimeRange& range, std::optional<NSError>* error) override;

 private:
  std::vector<std::shared_ptr<AVAssetTrack>> videoTracks_;
  std::optional<NSDictionary> videoSettings_;
  std::shared_ptr<AVMutableVideoComposition> videoComposition_;
  std::shared_ptr<AVVideoCompositing> compositor_;
  CMTime compositorTimeout_ = CMTimeMake(10, 1);
  bool started_ = false;
};

/// The mix of the given tracks. Without settings: interleaved 32-bit float, stereo, 44100 Hz.
class AVAssetReaderAudioMixOutput : public AVAssetReaderOutput {
 public:
  static std::shared_ptr<AVAssetReaderAudioMixOutput> initWithAudioTracks(
      const std::vector<std::shared_ptr<AVAssetTrack>>& audioTracks, const std::optional<NSDictionary>& audioSettings);
  const std::vector<std::shared_ptr<AVAssetTrack>>& audioTracks() const { return audioTracks_; }
  /// Kept and readable. Scaled segments are played by varispeed, whatever it says: their pitch follows the speed.
  const std::string& audioTimePitchAlgorithm() const { return audioTimePitchAlgorithm_; }
  void setAudioTimePitchAlgorithm(std::string algorithm) { audioTimePitchAlgorithm_ = std::move(algorithm); }
  const std::shared_ptr<AVMutableAudioMix>& audioMix() const { return audioMix_; }
  void setAudioMix(std::shared_ptr<AVMutableAudioMix> audioMix) { audioMix_ = std::move(audioMix); }
  const AVMediaType& mediaType() const override;

 protected:
  AVAssetReaderAudioMixOutput() = default;
  bool fitsAsset(const std::shared_ptr<AVAsset>& asset) const override;
  std::shared_ptr<SampleSource> makeSource(const CMTimeRange& range, std::optional<NSError>* error) override;

 private:
  std::vector<std::shared_ptr<AVAssetTrack>> audioTracks_;
  std::optional<NSDictionary> audioSettings_;
  std::string audioTimePitchAlgorithm_ = AVAudioTimePitchAlgorithmSpectral;
  std::shared_ptr<AVMutableAudioMix> audioMix_;
};

}  // namespace vidloom
