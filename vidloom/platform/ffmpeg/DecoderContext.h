// Opens libav decoders in the way that all of the reading does.
#pragma once

#include <string>

#include "vidloom/platform/ffmpeg/AvPointers.h"
#include "vidloom/platform/ffmpeg/MediaFile.h"

struct AVCodecParameters;

namespace vidloom {

struct DecoderSettings {
  int threads = 1;
  bool alpha = false;        ///< the decoder that gives an alpha plane, where there are two
  bool headersOnly = false;  ///< reads what the headers say, gives no pictures where the codec can do that
  int reorderDepth = 0;
};

/// Null with a libav error.
AvCodecContextPointer openDecoderContext(const AVCodecParameters& parameters, int timeBaseNumerator, int timeBaseDenominator,
                                         const DecoderSettings& settings, const MediaLimits& limits, int& avError);

}  // namespace vidloom
