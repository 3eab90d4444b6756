// The index of a movie file: its 'moov' box.
#pragma once

#include <cstdint>
#include <vector>

#include "vidloom/platform/ffmpeg/MovieTrack.h"

namespace vidloom {

/// Samples of one track that lie together in the file.
struct MovieChunk {
  size_t trackIndex = 0;
  size_t sampleCount = 0;
  uint64_t byteCount = 0;
  uint64_t spoolOffset = 0;
  uint64_t fileOffset = 0;
};

class MovieIndex {
 public:
  /// Groups the samples of all tracks into chunks of about half a second, ordered by time. File offsets stay 0.
  static std::vector<MovieChunk> interleave(const std::vector<MovieTrack>& tracks);
  /// The box for these chunks. Its size does not depend on the file offsets as long as `longOffsets` stays the same. The same
  /// tracks give the same bytes: nothing in it depends on the clock.
  static std::vector<uint8_t> build(const std::vector<MovieTrack>& tracks, const std::vector<MovieChunk>& chunks, bool longOffsets);
};

}  // namespace vidloom
