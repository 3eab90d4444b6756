// The mix of the sound of several tracks.
#pragma once

#include <atomic>
#include <memory>
#include <optional>
#include <vector>

#include "vidloom/platform/avfoundation/AVAssetReaderOutput.h"
#include "vidloom/platform/reading/AudioCursor.h"

namespace vidloom {

/// Linear PCM as samples carry it: interleaved, in the machine's byte order.
struct AudioFormat {
  int sampleRate = 44100;
  int channels = 2;     ///< 1 or 2; one is the mean of both
  bool isFloat = true;  ///< 32-bit float, else 16-bit integers
};

/// Sums the tracks at their volumes; the sum is clipped to -1 ... 1. Sample n stands for range.start + n / rate; those before the
/// end of the range and of the last sound come out, gaps as exact zeros. Tracks that are silent in a block cost nothing.
class AudioMixer : public SampleSource {
 public:
  struct Setup {
    std::vector<std::shared_ptr<AVAssetTrack>> audioTracks;
    std::shared_ptr<const AVMutableAudioMix> mix;  ///< null: volume 1; not changed any more
    AudioFormat format;
    CMTimeRange range;  ///< numeric
    int blockFrames = 4096;
    AudioDecoderPool::Opener opener = openAudioDecoders();
  };
  explicit AudioMixer(Setup setup);
  ~AudioMixer() override;

  CMSampleBufferRef next(std::optional<NSError>* error) override;
  void cancel() override;
  /// How many frames come out altogether.
  int64_t frameCount() const { return frameCount_; }

 private:
  struct Track {
    AudioCursor cursor;
    std::shared_ptr<const AVMutableAudioMixInputParameters> volume;  ///< null: 1
  };
  bool mixBlock(int64_t first, int count, std::optional<NSError>* error);
  void addTrack(const Track& track, int64_t first, int count);
  void addAtVolume(const AVMutableAudioMixInputParameters& volume, int64_t first, int count);
  double secondsOf(int64_t frame) const;

  const AudioFormat format_;
  const CMTimeRange range_;
  const int blockFrames_;
  std::shared_ptr<AudioDecoderPool> pool_;
  VarispeedResampler resampler_;
  std::vector<Track> tracks_;
  CMFormatDescriptionRef description_;
  std::vector<float> mixed_, single_;
  int64_t frameCount_ = 0, nextFrame_ = 0;
  std::atomic<bool> isCancelled_{false};
};

}  // namespace vidloom
