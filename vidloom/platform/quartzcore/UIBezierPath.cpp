#include "vidloom/platform/quartzcore/UIBezierPath.h"

namespace vidloom {

std::shared_ptr<UIBezierPath> UIBezierPath::bezierPath() { return std::make_shared<UIBezierPath>(UIBezierPath()); }

void UIBezierPath::moveToPoint(const CGPoint& point) { elements_.push_back({Element::Kind::move, {}, {}, point}); }

void UIBezierPath::addCurveToPoint(const CGPoint& endPoint, const CGPoint& controlPoint1, const CGPoint& controlPoint2) {
  if (elements_.empty()) moveToPoint(CGPointZero);
  elements_.push_back({Element::Kind::curve, controlPoint1, controlPoint2, endPoint});
}

}  // namespace vidloom
