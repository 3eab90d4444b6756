// The sound of one track of a file as it is stored.
#pragma once

#include <atomic>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

#include "vidloom/platform/avfoundation/AVAssetReaderOutput.h"
#include "vidloom/platform/reading/AudioMixer.h"

namespace vidloom {

/// 16-bit integers or floats in the track's own rate and channels, from the first sound of the range that can be decoded to the
/// last one. Sample n of the track stands for its start + n / rate.
class TrackSoundSource : public SampleSource {
 public:
  struct Setup {
    std::shared_ptr<AVAssetTrack> track;  ///< of a file
    bool isFloat = false;
    CMTimeRange range;  ///< numeric
    int blockFrames = 8192;
    AudioDecoderPool::Opener opener = openAudioDecoders();
  };
  explicit TrackSoundSource(Setup setup);
  ~TrackSoundSource() override;

  CMSampleBufferRef next(std::optional<NSError>* error) override;
  void cancel() override;

 private:
  bool open(std::optional<NSError>* error);
  /// The next frames of the range. Empty at the end.
  NativeSound readBlock();

  const Setup setup_;
  std::shared_ptr<AudioDecoderPool> pool_;
  AudioDecoder* decoder_ = nullptr;
  AudioFormat format_;
  CMFormatDescriptionRef description_;
  std::vector<uint8_t> block_;             ///< 16-bit integers
  int64_t firstFrame_ = 0, endFrame_ = 0;  ///< of the range
  std::atomic<bool> isCancelled_{false};
};

}  // namespace vidloom
