// A libav encoder: frames in, packets out.
#pragma once

#include <cstdint>
#include <functional>
#include <span>

#include "vidloom/platform/ffmpeg/AvLog.h"
#include "vidloom/platform/ffmpeg/AvPointers.h"

namespace vidloom {

/// Ticks of the encoder's time base. The bytes belong to the encoder and are gone after the call that hands them over.
struct EncodedPacket {
  std::span<const uint8_t> bytes;
  int64_t presentationTicks = 0;
  int64_t decodeTicks = 0;
  bool sync = false;
};

/// Takes a packet; anything but 0 (an errno value) ends the encoding.
using PacketSink = std::function<int(const EncodedPacket&)>;

/// Owns an opened codec context. One thread at a time.
class PacketEncoder {
 public:
  struct Result {
    int avError = 0;     ///< of the encoder
    int errnoValue = 0;  ///< of the sink
    explicit operator bool() const { return avError == 0 && errnoValue == 0; }
  };

  PacketEncoder(AvCodecContextPointer context, AvLogName logName);

  /// Encodes one frame, or flushes with null, and hands over what has come out.
  Result submit(const AVFrame* frame, const PacketSink& sink);
  const AVCodecContext& context() const { return *context_; }

 private:
  AvCodecContextPointer context_;
  AvLogName logName_;
  AvPacketPointer packet_;
};

}  // namespace vidloom
