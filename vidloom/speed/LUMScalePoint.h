// A control point of a speed curve.
#pragma once

#include <memory>

#include "vidloom/platform/coregraphics/CGGeometry.h"

namespace vidloom {

/// Immutable.
class LUMScalePoint {
 public:
  static std::shared_ptr<LUMScalePoint> initWithX(float x, float andY, const CGPoint& center);
  std::shared_ptr<LUMScalePoint> copy() const;
  virtual ~LUMScalePoint() = default;

  /// The position along the track, as a fraction of the length that the curve covers.
  float x() const { return x_; }
  /// Kept for the host; nothing reads it.
  float y() const { return y_; }
  /// The position in the editing box; its y is the speed.
  const CGPoint& center() const { return center_; }

 protected:
  LUMScalePoint(float x, float y, const CGPoint& center) : x_(x), y_(y), center_(center) {}

 private:
  float x_, y_;
  CGPoint center_;
};

}  // namespace vidloom
