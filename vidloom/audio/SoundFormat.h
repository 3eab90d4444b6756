// The form in which analyses read the sound of a track.
#pragma once

#include <optional>

#include "vidloom/platform/avfoundation/AVAssetTrack.h"
#include "vidloom/platform/foundation/NSDictionary.h"

namespace vidloom {

/// Output settings for interleaved 16-bit integers, little-endian, at the track's own rate and with its own channels.
NSDictionary sixteenBitSettings();

/// The last stream description among those of the track; nullopt for a track that is not one of sound.
std::optional<AudioStreamBasicDescription> streamDescriptionOf(const AVAssetTrack& track);

}  // namespace vidloom
