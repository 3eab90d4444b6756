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

/// 16-bit integers or floats in the track's own rate and channels. Sample n stands for the track's start + n / rate.
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
  /// Reads the next frames, skipping those before the range. Their number; 0 at the end.
  int readBlock();

  const Setup setup_;
  std::shared_ptr<AudioDecoderPool> pool_;
  AudioDecoder* decoder_ = nullptr;
  AudioFormat format_;
  CMFormatDescriptionRef description_;
  std::vector<int16_t> block_;
  int64_t firstFrame_ = 0, endFrame_ = 0;  ///< of the range
  int64_t frame_ = 0;                      ///< how many were read
  std::atomic<bool> isCancelled_{false};
};

}  // namespace vidloom
