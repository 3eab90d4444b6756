// Uncompressed sound of any kind as interleaved float of one kind.
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "vidloom/platform/coremedia/CMFormatDescription.h"
#include "vidloom/platform/ffmpeg/AvPointers.h"

namespace vidloom {

/// Converts sample format, rate and channels of a run of sound. Mono goes to all channels at unity. One thread at a time.
class PcmConverter {
 public:
  /// Null, with the reason in `why`, for a format that is not linear PCM or has no meaning.
  static std::unique_ptr<PcmConverter> open(const AudioStreamBasicDescription& source, double sampleRate, int channels,
                                            std::string& why);
  /// Takes over a resampler: open() makes it.
  PcmConverter(const AudioStreamBasicDescription& source, double sampleRate, int channels, SwrContextPointer resampler);

  /// Whether this is how the source is to be read.
  bool fits(const AudioStreamBasicDescription& source) const;
  /// The most frames that so many bytes hold.
  int64_t framesIn(size_t byteCount) const;
  /// What has come out of the converter; valid until the next call. With a rate to convert, some frames come later. Planes of
  /// sound that is not interleaved follow one another.
  std::span<const float> convert(std::span<const uint8_t> bytes, int frameCount);
  /// The end of the run: together with everything before it as long as what went in. The next run starts anew.
  std::span<const float> drain();

 private:
  void keepOutput(int64_t frameCount);
  std::span<const float> output(int64_t frameCount) const;

  AudioStreamBasicDescription source_;
  double sampleRate_;
  int channels_;
  SwrContextPointer resampler_;
  std::vector<float> converted_;
  int64_t framesIn_ = 0;
  int64_t framesOut_ = 0;
};

}  // namespace vidloom
