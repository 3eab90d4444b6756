#include "vidloom/timeline/LUMCIImageTrack.h"

#include "vidloom/platform/coreimage/CIContext.h"
#include "vidloom/timeline/LUMCGImageTrack.h"

namespace vidloom {

std::shared_ptr<LUMCIImageTrack> LUMCIImageTrack::initWithId(uint64_t objectId) {
  auto track = std::make_shared<LUMCIImageTrack>(LUMCIImageTrack());
  return track->prepareWithId(objectId) ? track : nullptr;
}

std::shared_ptr<LUMCIImageTrack> LUMCIImageTrack::initWithCIImage(CIImageRef image, uint64_t objectId,
                                                                  const CMTimeRange& initialTimeRange) {
  auto track = std::make_shared<LUMCIImageTrack>(LUMCIImageTrack());
  return track->prepareWithCIImage(std::move(image), objectId, initialTimeRange) ? track : nullptr;
}

bool LUMCIImageTrack::prepareWithCIImage(CIImageRef image, uint64_t objectId, const CMTimeRange& initialTimeRange) {
  if (!prepareWithId(objectId)) return false;
  image_ = std::move(image);
  if (image_) isOpaque_ = isOpaqueImage(CIContext::context()->createCGImage(image_, image_->extent()));
  setStart(initialTimeRange.start);
  setTransform(CGAffineTransformIdentity);
  assetDuration_ = initialTimeRange.duration;
  return true;
}

CGSize LUMCIImageTrack::aspectSize() const { return image_ ? image_->extent().size : CGSizeZero; }

}  // namespace vidloom
