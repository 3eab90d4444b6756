// What a sample is made of: media type, codec, dimensions or stream description.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "vidloom/platform/corevideo/CVPixelBuffer.h"

namespace vidloom {

using CMMediaType = uint32_t;
inline constexpr CMMediaType kCMMediaType_Video = 0x76696465;  ///< 'vide'
inline constexpr CMMediaType kCMMediaType_Audio = 0x736f756e;  ///< 'soun'
inline constexpr uint32_t kAudioFormatLinearPCM = 0x6c70636d;  ///< 'lpcm'
inline constexpr uint32_t kAudioFormatMPEG4AAC = 0x61616320;   ///< 'aac '
inline constexpr uint32_t kAudioFormatFlagIsFloat = 1;
inline constexpr uint32_t kAudioFormatFlagIsBigEndian = 2;
inline constexpr uint32_t kAudioFormatFlagIsSignedInteger = 4;
inline constexpr uint32_t kAudioFormatFlagIsPacked = 8;
inline constexpr uint32_t kAudioFormatFlagIsNonInterleaved = 32;

struct AudioStreamBasicDescription {
  double mSampleRate = 0;
  uint32_t mFormatID = 0;
  uint32_t mFormatFlags = 0;
  uint32_t mBytesPerPacket = 0;
  uint32_t mFramesPerPacket = 0;
  uint32_t mBytesPerFrame = 0;
  uint32_t mChannelsPerFrame = 0;
  uint32_t mBitsPerChannel = 0;
};

struct CMVideoDimensions {
  int32_t width = 0;
  int32_t height = 0;
};

class CMFormatDescription {
 public:
  CMMediaType mediaType = 0;
  uint32_t mediaSubType = 0;  ///< a pixel format, a codec or an audio format id
  CMVideoDimensions dimensions;
  AudioStreamBasicDescription stream;
  bool hasStream = false;
};
/// Immutable once made.
using CMFormatDescriptionRef = std::shared_ptr<const CMFormatDescription>;
using OSStatus = int32_t;
inline constexpr OSStatus kCMFormatDescriptionError_InvalidParameter = -12710;

/// Status 0, or kCMFormatDescriptionError_InvalidParameter for a null buffer.
OSStatus CMVideoFormatDescriptionCreateForImageBuffer(const CVPixelBufferRef& imageBuffer,
                                                      CMFormatDescriptionRef* formatDescriptionOut);
OSStatus CMAudioFormatDescriptionCreate(const AudioStreamBasicDescription& asbd, CMFormatDescriptionRef* formatDescriptionOut);
CMMediaType CMFormatDescriptionGetMediaType(const CMFormatDescriptionRef& description);
/// Null where the description is not one of audio.
const AudioStreamBasicDescription* CMAudioFormatDescriptionGetStreamBasicDescription(const CMFormatDescriptionRef& description);

}  // namespace vidloom
