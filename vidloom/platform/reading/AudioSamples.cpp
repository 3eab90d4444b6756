#include "vidloom/platform/reading/AudioSamples.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace vidloom {

CMFormatDescriptionRef audioDescription(const AudioFormat& format) {
  AudioStreamBasicDescription stream;
  stream.mSampleRate = format.sampleRate;
  stream.mFormatID = kAudioFormatLinearPCM;
  stream.mFormatFlags = kAudioFormatFlagIsPacked | (format.isFloat ? kAudioFormatFlagIsFloat : kAudioFormatFlagIsSignedInteger);
  stream.mBitsPerChannel = format.isFloat ? 32 : 16;
  stream.mChannelsPerFrame = static_cast<uint32_t>(format.channels);
  stream.mBytesPerFrame = stream.mBitsPerChannel / 8 * stream.mChannelsPerFrame;
  stream.mFramesPerPacket = 1;
  stream.mBytesPerPacket = stream.mBytesPerFrame;
  CMFormatDescriptionRef description;
  CMAudioFormatDescriptionCreate(stream, &description);
  return description;
}

std::vector<uint8_t> audioBytes(const float* interleavedStereo, int frames, const AudioFormat& format) {
  const auto count = static_cast<size_t>(frames) * static_cast<size_t>(format.channels);
  std::vector<uint8_t> bytes(count * (format.isFloat ? sizeof(float) : sizeof(int16_t)));
  for (size_t i = 0; i < count; ++i) {
    const float value = format.channels == 2 ? interleavedStereo[i] : (interleavedStereo[2 * i] + interleavedStereo[2 * i + 1]) / 2;
    const float clipped = std::clamp(value, -1.0f, 1.0f);
    if (format.isFloat) {
      std::memcpy(&bytes[i * sizeof clipped], &clipped, sizeof clipped);
    } else {
      const auto integer = static_cast<int16_t>(std::clamp(std::lrint(clipped * 32768.0f), -32768L, 32767L));
      std::memcpy(&bytes[i * sizeof integer], &integer, sizeof integer);
    }
  }
  return bytes;
}

CMSampleBufferRef audioSample(std::vector<uint8_t> bytes, const CMFormatDescriptionRef& description, int64_t frames,
                              const CMTime& time) {
  CMSampleBufferRef sample;
  CMAudioSampleBufferCreateReady(std::make_shared<CMBlockBuffer>(std::move(bytes)), description, frames, time, &sample);
  return sample;
}

}  // namespace vidloom
