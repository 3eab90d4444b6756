#include "vidloom/platform/coremedia/CMSampleBuffer.h"

#include <cmath>
#include <limits>
#include <mutex>

namespace vidloom {

/// What a sample holds. Only the data can change, and only to nothing.
class CMSampleBuffer {
 public:
  struct Data {
    CVPixelBufferRef image;
    CMBlockBufferRef block;
    CMFormatDescriptionRef format;
    int64_t sampleCount = 0;
    CMSampleTimingInfo timing;  ///< the duration is that of the whole buffer
  };

  explicit CMSampleBuffer(Data data) : data_(std::move(data)) {}

  bool isValid() const {
    const std::lock_guard lock(mutex_);
    return valid_;
  }
  void invalidate() {
    Data dropped;
    const std::lock_guard lock(mutex_);
    valid_ = false;
    std::swap(dropped, data_);
  }
  /// Of an invalidated buffer: zero of its type.
  template <typename Field>
  Field get(Field Data::*field) const {
    const std::lock_guard lock(mutex_);
    return data_.*field;
  }

 private:
  mutable std::mutex mutex_;
  bool valid_ = true;
  Data data_;
};

namespace {

bool describesImage(const CMFormatDescription& format, const CVPixelBufferRef& image) {
  return format.mediaType == kCMMediaType_Video && format.mediaSubType == CVPixelBufferGetPixelFormatType(image) &&
         format.dimensions.width == static_cast<int32_t>(CVPixelBufferGetWidth(image)) &&
         format.dimensions.height == static_cast<int32_t>(CVPixelBufferGetHeight(image));
}

/// `frameCount` frames at `sampleRate` a second, exact where the rate is a whole number.
CMTime audioDuration(int64_t frameCount, double sampleRate) {
  if (sampleRate <= 0 || sampleRate > kCMTimeMaxTimescale) return kCMTimeInvalid;
  if (sampleRate >= 1 && std::floor(sampleRate) == sampleRate) return CMTimeMake(frameCount, static_cast<CMTimeScale>(sampleRate));
  return CMTimeMakeWithSeconds(static_cast<double>(frameCount) / sampleRate, 1'000'000'000);
}

template <typename Field>
Field fieldOf(const CMSampleBufferRef& sampleBuffer, Field CMSampleBuffer::Data::*field) {
  return sampleBuffer ? sampleBuffer->get(field) : Field{};
}

}  // namespace

OSStatus CMSampleBufferCreateForImageBuffer(const CVPixelBufferRef& imageBuffer, bool dataReady,
                                            const CMFormatDescriptionRef& formatDescription, const CMSampleTimingInfo& sampleTiming,
                                            CMSampleBufferRef* sampleBufferOut) {
  if (!imageBuffer || !formatDescription || sampleBufferOut == nullptr) return kCMSampleBufferError_RequiredParameterMissing;
  if (!dataReady) return kCMSampleBufferError_BufferNotReady;
  if (!describesImage(*formatDescription, imageBuffer)) return kCMSampleBufferError_InvalidMediaFormat;
  *sampleBufferOut =
      std::make_shared<CMSampleBuffer>(CMSampleBuffer::Data{imageBuffer, nullptr, formatDescription, 1, sampleTiming});
  return 0;
}

OSStatus CMAudioSampleBufferCreateReady(const CMBlockBufferRef& dataBuffer, const CMFormatDescriptionRef& formatDescription,
                                        int64_t numSamples, const CMTime& presentationTimeStamp,
                                        CMSampleBufferRef* sampleBufferOut) {
  if (!dataBuffer || !formatDescription || sampleBufferOut == nullptr || numSamples <= 0) {
    return kCMSampleBufferError_RequiredParameterMissing;
  }
  if (formatDescription->mediaType != kCMMediaType_Audio || !formatDescription->hasStream) {
    return kCMSampleBufferError_InvalidMediaFormat;
  }
  const CMSampleTimingInfo timing{audioDuration(numSamples, formatDescription->stream.mSampleRate), presentationTimeStamp,
                                  kCMTimeInvalid};
  *sampleBufferOut =
      std::make_shared<CMSampleBuffer>(CMSampleBuffer::Data{nullptr, dataBuffer, formatDescription, numSamples, timing});
  return 0;
}

CVPixelBufferRef CMSampleBufferGetImageBuffer(const CMSampleBufferRef& sampleBuffer) {
  return fieldOf(sampleBuffer, &CMSampleBuffer::Data::image);
}

CMBlockBufferRef CMSampleBufferGetDataBuffer(const CMSampleBufferRef& sampleBuffer) {
  return fieldOf(sampleBuffer, &CMSampleBuffer::Data::block);
}

CMFormatDescriptionRef CMSampleBufferGetFormatDescription(const CMSampleBufferRef& sampleBuffer) {
  return fieldOf(sampleBuffer, &CMSampleBuffer::Data::format);
}

int64_t CMSampleBufferGetNumSamples(const CMSampleBufferRef& sampleBuffer) {
  return fieldOf(sampleBuffer, &CMSampleBuffer::Data::sampleCount);
}

CMTime CMSampleBufferGetPresentationTimeStamp(const CMSampleBufferRef& sampleBuffer) {
  return fieldOf(sampleBuffer, &CMSampleBuffer::Data::timing).presentationTimeStamp;
}

CMTime CMSampleBufferGetDecodeTimeStamp(const CMSampleBufferRef& sampleBuffer) {
  return fieldOf(sampleBuffer, &CMSampleBuffer::Data::timing).decodeTimeStamp;
}

CMTime CMSampleBufferGetDuration(const CMSampleBufferRef& sampleBuffer) {
  return fieldOf(sampleBuffer, &CMSampleBuffer::Data::timing).duration;
}

OSStatus CMSampleBufferInvalidate(const CMSampleBufferRef& sampleBuffer) {
  if (!sampleBuffer) return kCMSampleBufferError_RequiredParameterMissing;
  sampleBuffer->invalidate();
  return 0;
}

bool CMSampleBufferIsValid(const CMSampleBufferRef& sampleBuffer) { return sampleBuffer && sampleBuffer->isValid(); }

OSStatus CMBlockBufferGetDataPointer(const CMBlockBufferRef& buffer, size_t offset, size_t* lengthAtOffset, size_t* totalLength,
                                     uint8_t** dataPointer) {
  if (!buffer || offset >= buffer->bytes().size()) return kCMBlockBufferBadOffsetParameterErr;
  if (lengthAtOffset != nullptr) *lengthAtOffset = buffer->bytes().size() - offset;
  if (totalLength != nullptr) *totalLength = buffer->bytes().size();
  if (dataPointer != nullptr) *dataPointer = buffer->bytes().data() + offset;
  return 0;
}

}  // namespace vidloom
