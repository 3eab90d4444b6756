// Decodes an audio track and knows the number of every sample.
#pragma once

#include <memory>
#include <optional>

#include "vidloom/platform/ffmpeg/AvLog.h"
#include "vidloom/platform/ffmpeg/PacketSource.h"

namespace vidloom {

/// A decoded stretch of sound.
struct SoundBlock {
  AvFramePointer frame;
  int64_t first = 0;  ///< sample number of its first sample, in media time
  int64_t end = 0;    ///< one past its last
};

/// Blocks of sound in order, from where decoding began. Time stamps that are off by a little do not cut or shift anything: blocks
/// follow each other until the stamps disagree by more than jitter. One thread at a time.
class SoundDecoder {
 public:
  enum class Status { block, end, cancelled };

  static std::unique_ptr<SoundDecoder> open(std::unique_ptr<PacketSource> packets, std::optional<NSError>* error);

  Status next(SoundBlock& block);
  /// Begins again so far before `sample` that it comes out as in decoding from the start, and gives the block that decoding begins
  /// with.
  Status restartBefore(int64_t sample, SoundBlock& block);
  int64_t firstSample() const { return firstSample_; }
  int rate() const { return rate_; }
  PacketSource& packets() { return *packets_; }

 private:
  SoundDecoder(std::unique_ptr<PacketSource> packets, AvCodecContextPointer context);
  void reset(bool atBeginning);
  void restartAtBeginning();
  Status sendPacket();
  void guardSamples();
  bool place(SoundBlock& block);
  int64_t sampleAt(int64_t ticks) const;
  int64_t snapped(int64_t sample) const;
  int64_t ticksAt(int64_t sample) const;
  void report(const char* what, int avError);

  std::unique_ptr<PacketSource> packets_;
  AvCodecContextPointer context_;
  AvLogName logName_;
  AvPacketPointer packet_;
  int rate_;
  int64_t firstSample_ = 0;
  int64_t anchorShift_ = 0;
  int64_t prerollSamples_ = 0;
  std::optional<int64_t> nextSample_;  ///< where the next block begins if the stamps agree
  int64_t packetTicks_ = 0;
  bool drained_ = false;
  bool fromBeginning_ = true;  ///< what comes next without a time stamp is the track's very first sound
  int reports_ = 0, errorsAtEnd_ = 0;
  int guardedPackets_;   ///< how many of the next packets guardSamples() keeps whole
  int64_t quietBefore_;  ///< damage before this sample is not logged: decoding begins in the middle of something
};

}  // namespace vidloom
