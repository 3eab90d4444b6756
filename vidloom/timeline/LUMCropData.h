// The crop of a track, as plain values. What they mean in pixels is the business of whoever draws.
#pragma once

#include <cstdint>
#include <memory>

#include "vidloom/platform/coregraphics/CGGeometry.h"

namespace vidloom {

class LUMCropData {
 public:
  static std::shared_ptr<LUMCropData> initWithTransform(const CGAffineTransform& transform, const CGRect& absolute,
                                                        const CGRect& percent, int64_t angle, const CGSize& box);
  /// A new object with the same values.
  std::shared_ptr<LUMCropData> copy() const;

  int64_t angle() const { return angle_; }
  void setAngle(int64_t angle) { angle_ = angle; }
  const CGSize& box() const { return box_; }
  void setBox(const CGSize& box) { box_ = box; }
  const CGRect& absolute() const { return absolute_; }
  void setAbsolute(const CGRect& absolute) { absolute_ = absolute; }
  const CGRect& percent() const { return percent_; }
  void setPercent(const CGRect& percent) { percent_ = percent; }
  const CGAffineTransform& transform() const { return transform_; }
  void setTransform(const CGAffineTransform& transform) { transform_ = transform; }

 protected:
  LUMCropData() = default;

 private:
  int64_t angle_ = 0;
  CGSize box_;
  CGRect absolute_;
  CGRect percent_;
  CGAffineTransform transform_;
};

}  // namespace vidloom
