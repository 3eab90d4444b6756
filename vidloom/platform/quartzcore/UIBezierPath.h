// A path made of moves and cubic curves, for editors that draw one.
#pragma once

#include <memory>
#include <vector>

#include "vidloom/platform/coregraphics/CGGeometry.h"

namespace vidloom {

class UIBezierPath {
 public:
  struct Element {
    enum class Kind { move, curve };
    Kind kind = Kind::move;
    CGPoint controlPoint1, controlPoint2;  ///< of a curve
    CGPoint end;
    friend bool operator==(const Element&, const Element&) = default;
  };

  /// An empty path.
  static std::shared_ptr<UIBezierPath> bezierPath();
  void moveToPoint(const CGPoint& point);
  /// From the current point on. A path that begins with a curve begins it at (0, 0).
  void addCurveToPoint(const CGPoint& endPoint, const CGPoint& controlPoint1, const CGPoint& controlPoint2);
  const std::vector<Element>& elements() const { return elements_; }

 protected:
  UIBezierPath() = default;

 private:
  std::vector<Element> elements_;
};

}  // namespace vidloom
