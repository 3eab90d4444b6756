#include "vidloom/timeline/LUMCGImageTrack.h"

#include "vidloom/platform/foundation/NSLog.h"
#include "vidloom/timeline/LUMGlobal.h"

namespace vidloom {

namespace {

bool isSRGBImage(const CGImageRef& image) {
  const CGColorSpaceRef space = CGImageGetColorSpace(image);
  if (CGColorSpaceGetModel(space) != kCGColorSpaceModelRGB) {
    NSLog("The image is not in RGB color space.");
    return false;
  }
  const std::optional<std::string> name = CGColorSpaceCopyName(space);
  if (!name) NSLog("Color space is NULL");
  return name == kCGColorSpaceSRGB;
}

}  // namespace

bool isOpaqueImage(const CGImageRef& image) {
  if (!image) return false;
  switch (CGImageGetAlphaInfo(image)) {
    case kCGImageAlphaNone:
    case kCGImageAlphaNoneSkipLast:
    case kCGImageAlphaNoneSkipFirst:
      return true;
    default:
      return false;
  }
}

std::shared_ptr<LUMCGImageTrack> LUMCGImageTrack::initWithId(uint64_t objectId) {
  auto track = std::make_shared<LUMCGImageTrack>(LUMCGImageTrack());
  return track->prepareWithId(objectId) ? track : nullptr;
}

std::shared_ptr<LUMCGImageTrack> LUMCGImageTrack::initWithCGImageRef(CGImageRef imageRef, uint64_t objectId,
                                                                     const CMTimeRange& initialTimeRange) {
  auto track = std::make_shared<LUMCGImageTrack>(LUMCGImageTrack());
  return track->prepareWithCGImageRef(std::move(imageRef), objectId, initialTimeRange) ? track : nullptr;
}

bool LUMCGImageTrack::prepareWithCGImageRef(CGImageRef imageRef, uint64_t objectId, const CMTimeRange& initialTimeRange) {
  if (!prepareWithId(objectId)) return false;
  imageRef_ = std::move(imageRef);
  if (imageRef_) {
    isOpaque_ = isOpaqueImage(imageRef_);
    isSRGB_ = isSRGBImage(imageRef_);
  } else {
    LUMGlobal::LUMLog("LUMCGImageTrack - init CGImageRef is NULL");
  }
  setStart(initialTimeRange.start);
  setTransform(CGAffineTransformIdentity);
  assetDuration_ = initialTimeRange.duration;
  return true;
}

CGSize LUMCGImageTrack::aspectSize() const {
  return {static_cast<double>(CGImageGetWidth(imageRef_)), static_cast<double>(CGImageGetHeight(imageRef_))};
}

}  // namespace vidloom
