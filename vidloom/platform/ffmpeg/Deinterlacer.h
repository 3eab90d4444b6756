// Interlaced pictures as progressive ones, at the frame rate.
#pragma once

#include <memory>

#include "vidloom/platform/ffmpeg/FilterGraph.h"
#include "vidloom/platform/ffmpeg/FrameDecoder.h"

namespace vidloom {

/// Stands between a track's decoder and whoever takes its frames. Frames pass untouched until the first interlaced one; from then
/// on each waits for the one after it.
class Deinterlacer {
 public:
  explicit Deinterlacer(FrameDecoder& decoder);
  FrameDecoder::Status next(DecodedFrame& decoded);
  /// After the decoder began anew.
  void reset();
  /// Whether frames are being deinterlaced: then the first one of a run lacks the one before it.
  bool isActive() const { return active_; }

 private:
  bool prepare(const DecodedFrame& decoded);
  FrameDecoder::Status pull(DecodedFrame& decoded);

  FrameDecoder& decoder_;
  bool active_;
  bool ended_ = false;
  std::unique_ptr<FilterGraph> graph_;
};

}  // namespace vidloom
