#include "vidloom/speed/PWBezier.h"

#include <cmath>

#include "vidloom/platform/quartzcore/UIBezierPath.h"

namespace vidloom {

namespace {

constexpr double kThird = 0.3333333333333333;
constexpr double kTwoThirds = 0.6666666666666666;

/// Applies a formula to both coordinates.
template <class Formula, class... Points>
CGPoint perCoordinate(Formula formula, const Points&... points) {
  return {formula(points.x...), formula(points.y...)};
}

CGPoint pointBetween(const CGPoint& start, const CGPoint& end, double fraction) {
  return perCoordinate([fraction](double s, double e) { return std::fma(e - s, fraction, s); }, start, end);
}

/// What of a middle point the two end points do not explain, the near one weighing eight times the far one.
CGPoint remainder(const CGPoint& middle, const CGPoint& near, const CGPoint& far) {
  return perCoordinate([](double m, double n, double f) { return m - std::fma(n, 8.0, f) / 27.0; }, middle, near, far);
}

CGPoint controlPoint(const CGPoint& own, const CGPoint& other) {
  return perCoordinate([](double o, double t) { return std::fma(o, 3.0, t * -1.5); }, own, other);
}

double horner(double a, double b, double c, double d, double t) { return std::fma(std::fma(std::fma(a, t, b), t, c), t, d); }

double slope(double a, double b, double c, double t) { return c + std::fma(3.0 * a * t, t, 2.0 * b * t); }

}  // namespace

std::shared_ptr<PWBezier> PWBezier::initWithOrigin(const CGPoint& origin, const CGPoint& controlPoint1,
                                                   const CGPoint& controlPoint2, const CGPoint& destination) {
  auto bezier = std::make_shared<PWBezier>(PWBezier(origin, controlPoint1, controlPoint2, destination));
  bezier->calculateCubicCoefficients();
  return bezier;
}

std::shared_ptr<PWBezier> PWBezier::initWithStartPoint(const CGPoint& startPoint, const CGPoint& endPoint) {
  return initWithOrigin(startPoint, pointBetween(startPoint, endPoint, kThird), pointBetween(startPoint, endPoint, kTwoThirds),
                        endPoint);
}

std::shared_ptr<PWBezier> PWBezier::initWithStartPoint(const CGPoint& startPoint, const CGPoint& firstMidPoint,
                                                       const CGPoint& secondMidPoint, const CGPoint& endPoint) {
  const CGPoint u = remainder(firstMidPoint, startPoint, endPoint);
  const CGPoint v = remainder(secondMidPoint, endPoint, startPoint);
  return initWithOrigin(startPoint, controlPoint(u, v), controlPoint(v, u), endPoint);
}

void PWBezier::calculateCubicCoefficients() {
  a_ = perCoordinate([](double c0, double c1, double c2, double c3) { return std::fma(c1, 3.0, std::fma(c2, -3.0, c3)) - c0; }, c0_,
                     c1_, c2_, c3_);
  b_ =
      perCoordinate([](double c0, double c1, double c2) { return std::fma(c0, 3.0, std::fma(c2, 3.0, c1 * -6.0)); }, c0_, c1_, c2_);
  c_ = perCoordinate([](double c0, double c1) { return std::fma(c1, 3.0, c0 * -3.0); }, c0_, c1_);
  d_ = c0_;
}

double PWBezier::outputXAtT(double t) const { return horner(a_.x, b_.x, c_.x, d_.x, t); }

double PWBezier::outputYAtT(double t) const { return horner(a_.y, b_.y, c_.y, d_.y, t); }

double PWBezier::tangentAngleAtT(double t) const { return std::atan2(slope(a_.y, b_.y, c_.y, t), slope(a_.x, b_.x, c_.x, t)); }

void PWBezier::addToBezierPath(UIBezierPath& path) const {
  path.moveToPoint(c0_);
  path.addCurveToPoint(c3_, c1_, c2_);
}

std::shared_ptr<UIBezierPath> PWBezier::bezierPath() const {
  auto path = UIBezierPath::bezierPath();
  addToBezierPath(*path);
  return path;
}

std::shared_ptr<PWBezier> PWBezier::copy() const { return initWithOrigin(c0_, c1_, c2_, c3_); }

}  // namespace vidloom
