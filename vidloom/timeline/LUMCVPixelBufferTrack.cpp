#include "vidloom/timeline/LUMCVPixelBufferTrack.h"

#include "vidloom/timeline/LUMGlobal.h"

namespace vidloom {

std::shared_ptr<LUMCVPixelBufferTrack> LUMCVPixelBufferTrack::initWithId(uint64_t objectId) {
  auto track = std::make_shared<LUMCVPixelBufferTrack>(LUMCVPixelBufferTrack());
  return track->prepareWithId(objectId) ? track : nullptr;
}

std::shared_ptr<LUMCVPixelBufferTrack> LUMCVPixelBufferTrack::initWithCVPixelBuffer(CVPixelBufferRef pixelBuffer, uint64_t objectId,
                                                                                    const CMTimeRange& initialTimeRange) {
  auto track = std::make_shared<LUMCVPixelBufferTrack>(LUMCVPixelBufferTrack());
  return track->prepareWithCVPixelBuffer(std::move(pixelBuffer), objectId, initialTimeRange) ? track : nullptr;
}

bool LUMCVPixelBufferTrack::prepareWithCVPixelBuffer(CVPixelBufferRef pixelBuffer, uint64_t objectId,
                                                     const CMTimeRange& initialTimeRange) {
  if (!prepareWithId(objectId)) return false;
  pixelBuffer_ = std::move(pixelBuffer);
  if (!pixelBuffer_) LUMGlobal::LUMLog("initWithCVPixelBuffer - init CVPixelBuffer is NULL");
  setStart(initialTimeRange.start);
  setTransform(CGAffineTransformIdentity);
  assetDuration_ = initialTimeRange.duration;
  return true;
}

CGSize LUMCVPixelBufferTrack::aspectSize() const {
  if (!pixelBuffer_) return CGSizeZero;
  return {static_cast<double>(CVPixelBufferGetWidth(pixelBuffer_)), static_cast<double>(CVPixelBufferGetHeight(pixelBuffer_))};
}

std::shared_ptr<LUMTrack> LUMCVPixelBufferTrack::copyWithId(uint64_t objectId) const {
  const auto copy = initWithCVPixelBuffer(pixelBuffer_, objectId, CMTimeRangeMake(start(), assetDuration_));
  if (!copy) return nullptr;
  copy->setLeftTrimOffset(leftTrimOffset());
  copy->setRightTrimOffset(rightTrimOffset());
  copy->setStart(start());
  copy->setTransform(transform());
  copy->setIgnoreRendering(ignoreRendering());
  copy->setScaleContext(scaleContext());
  copy->userInfo() = userInfo();
  copy->setCropData(cropData());
  copy->updateAssetDuration(assetDuration_);
  return copy;
}

}  // namespace vidloom
