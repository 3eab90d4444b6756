#include "vidloom/speed/LUMScalePoint.h"

namespace vidloom {

std::shared_ptr<LUMScalePoint> LUMScalePoint::initWithX(float x, float andY, const CGPoint& center) {
  return std::make_shared<LUMScalePoint>(LUMScalePoint(x, andY, center));
}

std::shared_ptr<LUMScalePoint> LUMScalePoint::copy() const { return initWithX(x_, y_, center_); }

}  // namespace vidloom
