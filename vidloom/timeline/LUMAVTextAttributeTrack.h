// The geometry of a text or overlay layer.
#pragma once

#include <optional>

#include "vidloom/platform/coregraphics/CGColor.h"
#include "vidloom/platform/quartzcore/CATransform3D.h"
#include "vidloom/timeline/LUMTrack.h"

namespace vidloom {

class CALayer;

/// A host that shows text derives from it and fills the hooks, which do nothing and give nothing here. A text lasts as long as
/// updateAssetDuration says. Derived classes answer isContentStatic with true where the timeline needs frames under the text that
/// nothing else gives.
class LUMAVTextAttributeTrack : public LUMTrack {
 public:
  static std::shared_ptr<LUMAVTextAttributeTrack> initWithId(uint64_t objectId);

  // All of these are zero or null until they are set.
  double contentsScale() const { return contentsScale_; }
  void setContentsScale(double contentsScale) { contentsScale_ = contentsScale; }
  const CGColorRef& backgroundColor() const { return backgroundColor_; }
  void setBackgroundColor(CGColorRef backgroundColor) { backgroundColor_ = std::move(backgroundColor); }
  const CGPoint& position() const { return position_; }
  void setPosition(const CGPoint& position) { position_ = position; }
  const CGRect& bounds() const { return bounds_; }
  void setBounds(const CGRect& bounds) { bounds_ = bounds; }
  const CGRect& frame() const { return frame_; }
  void setFrame(const CGRect& frame) { frame_ = frame; }
  const CATransform3D& caTransform() const { return caTransform_; }
  void setCaTransform(const CATransform3D& caTransform) { caTransform_ = caTransform; }

  virtual void setHidden(bool) {}
  virtual void removeFromSuperlayer() {}
  virtual void addInToSuperlayer(const std::shared_ptr<CALayer>&) {}
  virtual CGSize sizeToFit() { return CGSizeZero; }
  /// What the text looks like at a time.
  virtual std::optional<NSDictionary> attrsForTime(const CMTime&) const { return std::nullopt; }
  /// The layer that shows the text at a time, on screen and in an export.
  virtual std::shared_ptr<CALayer> layerForTime(const CMTime&) { return nullptr; }
  virtual std::shared_ptr<CALayer> renderLayerForTime(const CMTime&) { return nullptr; }

 protected:
  LUMAVTextAttributeTrack() = default;

 private:
  double contentsScale_ = 0;
  CGColorRef backgroundColor_;
  CGPoint position_;
  CGRect bounds_;
  CGRect frame_;
  CATransform3D caTransform_;
};

}  // namespace vidloom
