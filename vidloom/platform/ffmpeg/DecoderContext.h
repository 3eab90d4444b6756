// Opens libav decoders in the way that all of the reading does.
#pragma once

#include <string>

#include "vidloom/platform/ffmpeg/AvPointers.h"
#include "vidloom/platform/ffmpeg/MediaFile.h"

struct AVCodecParameters;

namespace vidloom {

struct DecoderSettings {
  int threads = 1;
  bool alpha = false;  ///< the decoder that gives an alpha plane, where there are two
  /// Where given, decoding stops as soon as the format of the pictures is known and writes it there; size and colours are then
  /// in the context. Some codecs never get there without a picture.
  int* pixelFormatOnly = nullptr;
  int reorderDepth = 0;
};

/// Null with a libav error.
AvCodecContextPointer openDecoderContext(const AVCodecParameters& parameters, int timeBaseNumerator, int timeBaseDenominator,
                                         const DecoderSettings& settings, const MediaLimits& limits, int& avError);

}  // namespace vidloom
