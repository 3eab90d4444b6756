// Times of a file's packets, by reading them all without decoding any.
#pragma once

#include <map>
#include <vector>

#include "vidloom/platform/ffmpeg/AvPointers.h"
#include "vidloom/platform/ffmpeg/OpenedMediaFile.h"
#include "vidloom/platform/ffmpeg/SampleTimes.h"

struct AVFormatContext;
struct AVPacket;

namespace vidloom {

/// What was seen of one stream. Times in ticks of the stream, as the demuxer gives them.
struct ScannedStream {
  SampleTimes times;  ///< with reorderDepth and keyFrames
  bool hasTimes = false;
  int64_t firstDts = 0;
  int64_t lastDuration = 0;
  int64_t firstStep = 0;  ///< from the first time to the second
  int64_t bytes = 0, firstBytes = 0;
  int64_t headCount = 0, headTicks = 0;  ///< packets before the first jump, and the time from the first one to the last one
  bool hasJumped = false;                ///< the middle was left out: key frames are unknown, the count of pictures is estimated
  int skipFrames = 0;                    ///< samples to leave out at the very beginning
  int discardFrames = 0;                 ///< samples to leave out at the very end
  std::vector<SoundMark> marks;
  AvPacketPointer lastPacket;  ///< of sound, in the order of the file
  int lastFrames = -1;         ///< samples that it gives; -1: not known
  int64_t countedFrames = 0;   ///< of Vorbis: samples that all packets give together; 0: not known
};

/// Takes the packets of a file in the order in which they come.
class PacketScan {
 public:
  PacketScan(const AVFormatContext& context, std::map<int, ScannedStream>& streams);
  ~PacketScan();
  /// Takes the packet. False where a stream has more than maxSamples packets.
  bool add(AVPacket& packet, int64_t maxSamples);
  /// Between packets that do not follow each other: the middle of the file is left out.
  void jump();
  /// Whether every stream went on after a jump; true without one.
  bool sawAllAtTheEnd() const;
  /// After the last packet: fills in what only the whole tells.
  void finish();

 private:
  class Stream;
  bool isContainer(const char* name) const;
  const AVFormatContext& context_;
  std::map<int, ScannedStream>& results_;
  std::map<int, Stream> streams_;
};

}  // namespace vidloom
