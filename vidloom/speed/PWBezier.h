// One cubic Bezier segment in the plane.
#pragma once

#include <memory>

#include "vidloom/platform/coregraphics/CGGeometry.h"

namespace vidloom {

class UIBezierPath;

/// P(t) = A t^3 + B t^2 + C t + D, evaluated with fused steps in double precision. Immutable; any thread.
class PWBezier {
 public:
  static std::shared_ptr<PWBezier> initWithOrigin(const CGPoint& origin, const CGPoint& controlPoint1, const CGPoint& controlPoint2,
                                                  const CGPoint& destination);
  /// A straight line.
  static std::shared_ptr<PWBezier> initWithStartPoint(const CGPoint& startPoint, const CGPoint& endPoint);
  /// The curve that passes through the middle points at t = 1/3 and t = 2/3.
  static std::shared_ptr<PWBezier> initWithStartPoint(const CGPoint& startPoint, const CGPoint& firstMidPoint,
                                                      const CGPoint& secondMidPoint, const CGPoint& endPoint);
  virtual ~PWBezier() = default;

  const CGPoint& C0() const { return c0_; }
  const CGPoint& C1() const { return c1_; }
  const CGPoint& C2() const { return c2_; }
  const CGPoint& C3() const { return c3_; }
  const CGPoint& A() const { return a_; }
  const CGPoint& B() const { return b_; }
  const CGPoint& C() const { return c_; }
  const CGPoint& D() const { return d_; }
  void calculateCubicCoefficients();

  /// Any t; outside 0 to 1 the curve goes on.
  double outputXAtT(double t) const;
  double outputYAtT(double t) const;
  CGPoint outputAtT(double t) const { return {outputXAtT(t), outputYAtT(t)}; }
  /// The direction of the curve, in radians.
  double tangentAngleAtT(double t) const;

  void addToBezierPath(UIBezierPath& path) const;
  std::shared_ptr<UIBezierPath> bezierPath() const;
  std::shared_ptr<PWBezier> copy() const;

 protected:
  PWBezier(const CGPoint& c0, const CGPoint& c1, const CGPoint& c2, const CGPoint& c3) : c0_(c0), c1_(c1), c2_(c2), c3_(c3) {}

 private:
  CGPoint c0_, c1_, c2_, c3_;
  CGPoint a_, b_, c_, d_;
};

}  // namespace vidloom
