#include "vidloom/platform/coremedia/CMFormatDescription.h"

namespace vidloom {

OSStatus CMVideoFormatDescriptionCreateForImageBuffer(const CVPixelBufferRef& imageBuffer,
                                                      CMFormatDescriptionRef* formatDescriptionOut) {
  if (!imageBuffer || formatDescriptionOut == nullptr) return kCMFormatDescriptionError_InvalidParameter;
  auto description = std::make_shared<CMFormatDescription>();
  description->mediaType = kCMMediaType_Video;
  description->mediaSubType = CVPixelBufferGetPixelFormatType(imageBuffer);
  description->dimensions = {static_cast<int32_t>(CVPixelBufferGetWidth(imageBuffer)),
                             static_cast<int32_t>(CVPixelBufferGetHeight(imageBuffer))};
  *formatDescriptionOut = std::move(description);
  return 0;
}

OSStatus CMAudioFormatDescriptionCreate(const AudioStreamBasicDescription& asbd, CMFormatDescriptionRef* formatDescriptionOut) {
  if (formatDescriptionOut == nullptr) return kCMFormatDescriptionError_InvalidParameter;
  auto description = std::make_shared<CMFormatDescription>();
  description->mediaType = kCMMediaType_Audio;
  description->mediaSubType = asbd.mFormatID;
  description->stream = asbd;
  description->hasStream = true;
  *formatDescriptionOut = std::move(description);
  return 0;
}

CMMediaType CMFormatDescriptionGetMediaType(const CMFormatDescriptionRef& description) {
  return description ? description->mediaType : 0;
}

const AudioStreamBasicDescription* CMAudioFormatDescriptionGetStreamBasicDescription(const CMFormatDescriptionRef& description) {
  return description && description->hasStream ? &description->stream : nullptr;
}

}  // namespace vidloom
