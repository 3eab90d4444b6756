// Decoded sound as interleaved stereo float, or as stored in 16 bits.
#pragma once

#include <cstdint>
#include <vector>

struct AVChannelLayout;
struct AVFrame;

namespace vidloom {

/// What goes of one channel to the left and to the right.
struct FoldGain {
  float left = 0, right = 0;
};

/// By ITU-R BS.775: mono to both at unity; centre and surrounds at -3 dB; no LFE; not renormalised. A layout that does not name its
/// channels counts as the usual one for their number.
std::vector<FoldGain> foldGains(const AVChannelLayout& layout);

/// Folds frames down; remembers the gains of the last layout.
class ChannelFold {
 public:
  /// `count` frames of sound from number `offset` of the frame on.
  void stereo(const AVFrame& frame, int offset, int count, float* interleavedStereo);
  /// The same with its own channels, saturated; channels that the frame lacks are silent.
  static void native16(const AVFrame& frame, int offset, int count, int channels, int16_t* interleaved);

 private:
  uint64_t mask_ = 0;
  int channels_ = 0;
  std::vector<FoldGain> gains_;
};

}  // namespace vidloom
