// One track of a movie that is about to be written.
#pragma once

#include <cstdint>
#include <vector>

namespace vidloom {

class PacketSpool;

/// One packet: its bytes follow those of the packet before it in the track's spool. Ticks of the track's timescale.
struct MovieSample {
  uint32_t sizeBytes = 0;
  uint32_t durationTicks = 0;      ///< until the next sample is decoded
  int32_t presentationOffset = 0;  ///< from its decode time on
  bool sync = true;
};

/// Everything that the index says about a track. The media's first decode time is 0.
struct MovieTrack {
  enum class Kind : uint8_t { video, sound };
  Kind kind = Kind::video;
  int64_t timescale = 1;
  int width = 0, height = 0;
  std::vector<uint8_t> sampleEntry;  ///< the box in the sample description
  std::vector<MovieSample> samples;  ///< in decode order
  int64_t delayTicks = 0;            ///< of the movie's time that is empty before the track starts
  int64_t mediaStartTicks = 0;       ///< the media time that is presented first
  int64_t presentedTicks = 0;        ///< how much of the media is presented
  int rollDistance = 0;              ///< samples to decode before the first good one; 0 writes no group
  PacketSpool* spool = nullptr;
};

}  // namespace vidloom
