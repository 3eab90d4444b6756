// Linear PCM in output settings.
#pragma once

#include <optional>

#include "vidloom/platform/foundation/NSDictionary.h"
#include "vidloom/platform/foundation/NSError.h"
#include "vidloom/platform/reading/AudioMixer.h"

namespace vidloom {

/// What the settings ask for; keys that are absent keep the value in `standard`, without settings all of them do. Nullopt with an
/// error for anything but interleaved linear PCM of 16-bit integers or 32-bit floats in the machine's byte order, one or two
/// channels (or as many as `standard` has) and a rate from 1 to 384000 Hz
/// (or that of `standard`).
std::optional<AudioFormat> audioFormatIn(const std::optional<NSDictionary>& settings, const AudioFormat& standard,
                                         std::optional<NSError>* error);

}  // namespace vidloom
