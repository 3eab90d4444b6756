#include "vidloom/platform/quartzcore/CALayer.h"

#include <algorithm>

namespace vidloom {

std::shared_ptr<CALayer> CALayer::layer() {
  struct Concrete : CALayer {};
  return std::make_shared<Concrete>();
}

CGAffineTransform CALayer::transformToSuperlayer() const {
  const double x = bounds_.origin.x + anchorPoint_.x * bounds_.size.width;
  const double y = bounds_.origin.y + anchorPoint_.y * bounds_.size.height;
  CGAffineTransform map = transform_;
  map.tx += position_.x - map.a * x - map.c * y;
  map.ty += position_.y - map.b * x - map.d * y;
  return map;
}

CGRect CALayer::frame() const { return CGRectApplyAffineTransform(bounds_, transformToSuperlayer()); }

void CALayer::setFrame(const CGRect& frame) {
  bounds_.size = frame.size;
  position_ = {frame.origin.x + anchorPoint_.x * frame.size.width, frame.origin.y + anchorPoint_.y * frame.size.height};
}

void CALayer::addSublayer(const std::shared_ptr<CALayer>& layer) {
  for (auto above = shared_from_this(); above; above = above->superlayer()) {
    if (above == layer) return;
  }
  if (!layer) return;
  layer->removeFromSuperlayer();
  layer->superlayer_ = weak_from_this();
  sublayers_.push_back(layer);
}

void CALayer::removeFromSuperlayer() {
  if (const auto above = superlayer()) std::erase(above->sublayers_, shared_from_this());
  superlayer_.reset();
}

}  // namespace vidloom
