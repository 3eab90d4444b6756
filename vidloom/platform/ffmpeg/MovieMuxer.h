// Writes an MPEG-4 file from finished tracks.
#pragma once

#include <functional>
#include <vector>

#include "vidloom/platform/ffmpeg/MovieTrack.h"
#include "vidloom/platform/ffmpeg/ScratchFile.h"

namespace vidloom {

class MovieMuxer {
 public:
  /// Writes the whole file: type, index, then the samples by turns. The tracks' spools lose their content on the way. Asks
  /// `isCancelled` between chunks. Returns 0, an errno value of the reading or writing, or ECANCELED.
  [[nodiscard]] static int write(const std::vector<MovieTrack>& tracks, ScratchFile& file,
                                 const std::function<bool()>& isCancelled);
};

}  // namespace vidloom
