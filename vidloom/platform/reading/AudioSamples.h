// Wraps sound into samples.
#pragma once

#include <cstdint>
#include <vector>

#include "vidloom/platform/coremedia/CMSampleBuffer.h"
#include "vidloom/platform/reading/AudioMixer.h"

namespace vidloom {

/// Null for a rate or a number of channels that cannot be described.
CMFormatDescriptionRef audioDescription(const AudioFormat& format);
/// Stereo as the bytes of the format: clipped to -1 ... 1; full scale of 16 bits is 32768, rounded to nearest.
std::vector<uint8_t> audioBytes(const float* interleavedStereo, int frames, const AudioFormat& format);
/// A sample of `frames` frames.
CMSampleBufferRef audioSample(std::vector<uint8_t> bytes, const CMFormatDescriptionRef& description, int64_t frames,
                              const CMTime& time);

}  // namespace vidloom
