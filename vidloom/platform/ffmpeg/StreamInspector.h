// What only the first packets of a stream tell: pixel format, colours, pixel aspect, decoded rate of sound.
#pragma once

#include "vidloom/platform/ffmpeg/AvInputPointers.h"
#include "vidloom/platform/ffmpeg/AvPointers.h"
#include "vidloom/platform/ffmpeg/MediaFile.h"

struct AVPacket;
struct AVStream;

namespace vidloom {

/// Enumerations are libav's, as numbers.
struct StreamFacts {
  int width = 0, height = 0;
  int pixelFormat = -1;
  int colorSpace = 2, colorPrimaries = 2, colorTransfer = 2, colorRange = 0;  // unspecified
  int pixelAspectWidth = 0, pixelAspectHeight = 0;
  bool interlaced = false;
  int sampleRate = 0, channels = 0;
  int packetFrames = 0;  ///< samples of a channel in a packet; 0: not known
};

/// Looks at the packets of one stream until it knows. Decodes a picture only where the headers do not suffice.
class StreamInspector {
 public:
  StreamInspector(const AVStream& stream, bool alpha, const MediaLimits& limits);
  /// True when nothing more is needed.
  bool offer(const AVPacket& packet);
  bool isDone() const { return done_; }
  /// What is known so far; what no packet told is as the container has it.
  const StreamFacts& facts() const { return facts_; }

 private:
  bool readHeaders(const AVPacket& packet);
  bool decodeOne(const AVPacket& packet);
  bool parse(const AVPacket& packet);

  const AVStream& stream_;
  bool alpha_;
  MediaLimits limits_;
  bool done_ = false;
  int attempts_ = 0;
  StreamFacts facts_;
};

}  // namespace vidloom
