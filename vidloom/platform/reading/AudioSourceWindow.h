// A sliding view of a source's samples.
#pragma once

#include <cstdint>
#include <vector>

#include "vidloom/platform/ffmpeg/AudioDecoder.h"

namespace vidloom {

/// Keeps the stretch of a source that was looked at last, channel by channel, so that stretches which overlap are decoded once.
class AudioSourceWindow {
 public:
  /// Makes frames first ... end-1 of the decoder's track readable. False only when the decoder was cancelled.
  bool load(AudioDecoder& decoder, int64_t first, int64_t end);
  /// Frame `first` of the stretch loaded last.
  const float* left() const { return left_.data(); }
  const float* right() const { return right_.data(); }
  /// Forgets what was loaded: the next stretch belongs to another track.
  void clear();

 private:
  int64_t first_ = 0;
  std::vector<float> left_, right_;
  std::vector<float> interleaved_;
};

}  // namespace vidloom
