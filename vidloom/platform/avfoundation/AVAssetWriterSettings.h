// The output settings of a writer's inputs as what the encoders take.
#pragma once

#include <optional>

#include "vidloom/platform/ffmpeg/MovieWriter.h"
#include "vidloom/platform/foundation/NSDictionary.h"

namespace vidloom {

class AVAssetWriterSettings {
 public:
  /// H.264 with width and height, fractions cut off; nullopt for anything else, and for sizes that cannot be written.
  static std::optional<MovieWriter::VideoSettings> video(const NSDictionary& outputSettings);
  /// AAC with rate and channels, the bit rate 128000 where it is not given; nullopt for anything else, and for rates, channels
  /// and bit rates that cannot be written.
  static std::optional<MovieWriter::AudioSettings> audio(const NSDictionary& outputSettings);
};

}  // namespace vidloom
