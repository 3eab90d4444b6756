#include "vidloom/timeline/LUMCropData.h"

namespace vidloom {

std::shared_ptr<LUMCropData> LUMCropData::initWithTransform(const CGAffineTransform& transform, const CGRect& absolute,
                                                            const CGRect& percent, int64_t angle, const CGSize& box) {
  auto crop = std::make_shared<LUMCropData>(LUMCropData());
  crop->setBox(box);
  crop->setAbsolute(absolute);
  crop->setTransform(transform);
  crop->setPercent(percent);
  crop->setAngle(angle);
  return crop;
}

std::shared_ptr<LUMCropData> LUMCropData::copy() const { return initWithTransform(transform_, absolute_, percent_, angle_, box_); }

}  // namespace vidloom
