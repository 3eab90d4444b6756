#include "vidloom/platform/coregraphics/CGGeometry.h"

#include <algorithm>
#include <cstdio>

namespace vidloom {

namespace {

std::string numberText(double number) {
  char text[40];
  std::snprintf(text, sizeof text, "%.17g", number);
  return text;
}

}  // namespace

double CGRectGetMinX(const CGRect& rect) { return rect.origin.x + std::min(0.0, rect.size.width); }
double CGRectGetMidX(const CGRect& rect) { return rect.origin.x + rect.size.width / 2; }
double CGRectGetMaxX(const CGRect& rect) { return rect.origin.x + std::max(0.0, rect.size.width); }
double CGRectGetMinY(const CGRect& rect) { return rect.origin.y + std::min(0.0, rect.size.height); }
double CGRectGetMidY(const CGRect& rect) { return rect.origin.y + rect.size.height / 2; }
double CGRectGetMaxY(const CGRect& rect) { return rect.origin.y + std::max(0.0, rect.size.height); }

CGAffineTransform CGAffineTransformConcat(const CGAffineTransform& t1, const CGAffineTransform& t2) {
  return {t1.a * t2.a + t1.b * t2.c, t1.a * t2.b + t1.b * t2.d,           t1.c * t2.a + t1.d * t2.c,
          t1.c * t2.b + t1.d * t2.d, t1.tx * t2.a + t1.ty * t2.c + t2.tx, t1.tx * t2.b + t1.ty * t2.d + t2.ty};
}

CGAffineTransform CGAffineTransformInvert(const CGAffineTransform& transform) {
  const auto& [a, b, c, d, tx, ty] = transform;
  const double determinant = a * d - b * c;
  if (determinant == 0) return transform;
  return {d / determinant,
          -b / determinant,
          -c / determinant,
          a / determinant,
          (c * ty - d * tx) / determinant,
          (b * tx - a * ty) / determinant};
}

CGPoint CGPointApplyAffineTransform(const CGPoint& point, const CGAffineTransform& transform) {
  return {transform.a * point.x + transform.c * point.y + transform.tx,
          transform.b * point.x + transform.d * point.y + transform.ty};
}

std::string NSStringFromCGSize(const CGSize& size) {
  return std::string("{") + numberText(size.width) + ", " + numberText(size.height) + "}";
}

std::ostream& operator<<(std::ostream& out, const CGPoint& point) {
  return out << '{' << numberText(point.x) << ", " << numberText(point.y) << '}';
}

std::ostream& operator<<(std::ostream& out, const CGSize& size) { return out << NSStringFromCGSize(size); }

std::ostream& operator<<(std::ostream& out, const CGRect& rect) { return out << '{' << rect.origin << ", " << rect.size << '}'; }

std::ostream& operator<<(std::ostream& out, const CGAffineTransform& transform) {
  return out << '[' << numberText(transform.a) << ", " << numberText(transform.b) << ", " << numberText(transform.c) << ", "
             << numberText(transform.d) << ", " << numberText(transform.tx) << ", " << numberText(transform.ty) << ']';
}

}  // namespace vidloom
