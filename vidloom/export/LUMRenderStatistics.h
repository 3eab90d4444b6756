// How far an export has come.
#pragma once

#include <cstdint>

#include "vidloom/platform/coremedia/CMTime.h"

namespace vidloom {

struct LUMRenderStatistics {
  enum class Phase {
    idle,    ///< nothing was started
    open,    ///< building the composition, opening reader and writer
    video,   ///< appending frames
    audio,   ///< the frames are through; appending sound
    finish,  ///< the file is being completed
    done,    ///< ended, in whatever way
  };
  struct Stream {
    int64_t frameCount = 0;          ///< pictures, or sample frames of sound
    CMTime mediaTime = kCMTimeZero;  ///< where the last appended sample ends, in composition time
  };
  Phase phase = Phase::idle;
  Stream video;
  Stream audio;
};

}  // namespace vidloom
