// Samples: a picture or a run of sound with its times and its format.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "vidloom/platform/coremedia/CMFormatDescription.h"
#include "vidloom/platform/coremedia/CMTimeRange.h"

namespace vidloom {

/// One contiguous piece of memory, shared.
class CMBlockBuffer {
 public:
  explicit CMBlockBuffer(std::vector<uint8_t> bytes) : bytes_(std::move(bytes)) {}
  std::vector<uint8_t>& bytes() { return bytes_; }
  const std::vector<uint8_t>& bytes() const { return bytes_; }

 private:
  std::vector<uint8_t> bytes_;
};
using CMBlockBufferRef = std::shared_ptr<CMBlockBuffer>;

inline constexpr OSStatus kCMSampleBufferError_AllocationFailed = -12730;
inline constexpr OSStatus kCMSampleBufferError_RequiredParameterMissing = -12731;
inline constexpr OSStatus kCMSampleBufferError_BufferNotReady = -12733;
inline constexpr OSStatus kCMSampleBufferError_InvalidMediaFormat = -12743;
inline constexpr OSStatus kCMSampleBufferError_Invalidated = -12744;
inline constexpr OSStatus kCMBlockBufferBadOffsetParameterErr = -12704;

struct CMSampleTimingInfo {
  CMTime duration;
  CMTime presentationTimeStamp;
  CMTime decodeTimeStamp;
};

class CMSampleBuffer;
/// A shared handle: keeping a copy is the retain, dropping it the release.
using CMSampleBufferRef = std::shared_ptr<CMSampleBuffer>;

/// Wraps a picture. Fails with kCMSampleBufferError_RequiredParameterMissing for a null argument and with
/// kCMSampleBufferError_InvalidMediaFormat where the description does not fit the picture.
OSStatus CMSampleBufferCreateForImageBuffer(const CVPixelBufferRef& imageBuffer, bool dataReady,
                                            const CMFormatDescriptionRef& formatDescription, const CMSampleTimingInfo& sampleTiming,
                                            CMSampleBufferRef* sampleBufferOut);
/// Wraps `numSamples` frames of sound that start at `presentationTimeStamp` and follow each other at the stream's rate.
OSStatus CMAudioSampleBufferCreateReady(const CMBlockBufferRef& dataBuffer, const CMFormatDescriptionRef& formatDescription,
                                        int64_t numSamples, const CMTime& presentationTimeStamp,
                                        CMSampleBufferRef* sampleBufferOut);

CVPixelBufferRef CMSampleBufferGetImageBuffer(const CMSampleBufferRef& sampleBuffer);
CMBlockBufferRef CMSampleBufferGetDataBuffer(const CMSampleBufferRef& sampleBuffer);
CMFormatDescriptionRef CMSampleBufferGetFormatDescription(const CMSampleBufferRef& sampleBuffer);
int64_t CMSampleBufferGetNumSamples(const CMSampleBufferRef& sampleBuffer);
CMTime CMSampleBufferGetPresentationTimeStamp(const CMSampleBufferRef& sampleBuffer);
CMTime CMSampleBufferGetDecodeTimeStamp(const CMSampleBufferRef& sampleBuffer);
/// Of the whole buffer: for sound the number of frames over the rate.
CMTime CMSampleBufferGetDuration(const CMSampleBufferRef& sampleBuffer);
/// Drops what the buffer holds; references that were taken before stay usable. 0, or an error for a null buffer.
OSStatus CMSampleBufferInvalidate(const CMSampleBufferRef& sampleBuffer);
bool CMSampleBufferIsValid(const CMSampleBufferRef& sampleBuffer);

/// The bytes from `offset` on. All of them are contiguous: lengthAtOffset is totalLength - offset.
OSStatus CMBlockBufferGetDataPointer(const CMBlockBufferRef& buffer, size_t offset, size_t* lengthAtOffset, size_t* totalLength,
                                     uint8_t** dataPointer);

}  // namespace vidloom
