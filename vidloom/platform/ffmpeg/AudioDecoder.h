// Sound of one audio track, by sample number.
#pragma once

#include <memory>
#include <optional>

#include "vidloom/platform/ffmpeg/MediaFile.h"

namespace vidloom {

/// A run of sound as it is stored.
struct NativeSound {
  int64_t firstFrame = 0;  ///< of it, counted from the beginning of the track's first edit that shows anything
  int frameCount = 0;      ///< zero: the end
};

/// Decodes a track to interleaved stereo float at the track's own rate, addressed by sample number: sample n is the one at
/// n / sampleRate() seconds of media time (the same media time that MediaEdit::mediaStart counts in). Mono goes to both channels at
/// unity, more than two channels are folded down by ITU-R BS.775 (centre and surrounds -3 dB, no LFE, not renormalised).
/// Sequential reads are cheap; any other position seeks and decodes what the codec needs before it. One thread at a time.
class AudioDecoder {
 public:
  static std::unique_ptr<AudioDecoder> open(std::shared_ptr<const MediaFile> file, int trackIndex, std::optional<NSError>* error);
  virtual ~AudioDecoder() = default;

  virtual double sampleRate() const = 0;
  /// Fills `frameCount` stereo frames from sample `firstFrame` on; where the media has none (before its start, after its end,
  /// holes between packets, damaged packets: logged with file and time) silence. False only after cancel().
  virtual bool read(int64_t firstFrame, int frameCount, float* interleavedStereo) = 0;
  /// As stored: the track's own channels, interleaved 16-bit (rounded to nearest, saturated; of wider integers the upper bits), in
  /// the order of the track's edits. It begins with the first sound that can be decoded and ends with the last one: holes between
  /// are silence, of a day at most altogether, but none is added at either end. Do not mix with read().
  virtual NativeSound readNextNative16(int16_t* interleaved, int maxFrames) = 0;
  virtual int channels() const = 0;
  virtual void cancel() = 0;
};

}  // namespace vidloom
