// The sound of one track at any output sample.
#pragma once

#include <memory>
#include <optional>
#include <vector>

#include "vidloom/platform/reading/AudioPlan.h"
#include "vidloom/platform/reading/AudioSourceWindow.h"
#include "vidloom/platform/reading/DecoderPool.h"
#include "vidloom/platform/reading/VarispeedResampler.h"

namespace vidloom {

/// Renders what a plan says. Blocks are asked for in order; their size does not change the sound. One thread at a time. Pool and
/// resampler outlive it.
class AudioCursor {
 public:
  AudioCursor(int number, std::vector<AudioPiece> pieces, AudioDecoderPool& pool, VarispeedResampler& resampler)
      : number_(number), pieces_(std::move(pieces)), pool_(pool), resampler_(resampler) {}

  /// Whether any of the samples first ... first + count - 1 has a source.
  bool hasSound(int64_t first, int count);
  /// Writes those samples as interleaved stereo, exact zeros where there is no source. False with an error that names file and
  /// cause where a source cannot be opened, without one when the pool was cancelled. `compositionSeconds` is the block's time.
  bool render(int64_t first, int count, double compositionSeconds, float* interleavedStereo, std::optional<NSError>* error);

 private:
  bool renderPiece(size_t index, int64_t first, int64_t end, AudioDecoder& decoder, float* out);
  bool renderGliding(size_t index, int64_t first, int64_t end, double speed, AudioDecoder& decoder, float* out);

  const int number_;
  const std::vector<AudioPiece> pieces_;
  AudioDecoderPool& pool_;
  VarispeedResampler& resampler_;
  AudioSourceWindow window_;
  const AudioDecoder* windowOwner_ = nullptr;
  std::vector<double> positions_;
  size_t current_ = 0;  ///< the first piece that does not end before the block asked for last
};

}  // namespace vidloom
