// Times of a file's packets, by reading them all without decoding any.
#pragma once

#include <map>
#include <vector>

#include "vidloom/platform/ffmpeg/AvPointers.h"
#include "vidloom/platform/ffmpeg/Demuxer.h"
#include "vidloom/platform/ffmpeg/OpenedMediaFile.h"
#include "vidloom/platform/ffmpeg/SampleTimes.h"

struct AVPacket;

namespace vidloom {

/// What was seen of one stream. Times in ticks of the stream, as the demuxer gives them.
struct ScannedStream {
  SampleTimes times;  ///< with reorderDepth and keyFrames
  bool hasTimes = false;
  int64_t firstDts = 0;
  int64_t lastDuration = 0;
  int skipFrames = 0;     ///< samples to leave out at the very beginning
  int discardFrames = 0;  ///< samples to leave out at the very end
  std::vector<SoundMark> marks;
  int64_t packetDuration = 0;  ///< of every packet but the last; 0 where they differ
};

/// Reads to the end of the file. Streams that the demuxer discards are not in the result. False when cancelled or where more than
/// maxSamples packets are in a stream.
bool scanPackets(Demuxer& demuxer, int64_t maxSamples, std::map<int, ScannedStream>& streams);

}  // namespace vidloom
