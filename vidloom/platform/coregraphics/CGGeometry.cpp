#include "vidloom/platform/coregraphics/CGGeometry.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace vidloom {

namespace {

std::string numberText(double number) {
  char text[40];
  std::snprintf(text, sizeof text, "%.17g", number);
  return text;
}

/// The same rectangle with a size that is not negative.
CGRect edgesInOrder(const CGRect& rect) {
  return CGRectMake(CGRectGetMinX(rect), CGRectGetMinY(rect), std::abs(rect.size.width), std::abs(rect.size.height));
}

}  // namespace

double CGRectGetMinX(const CGRect& rect) { return rect.origin.x + std::min(0.0, rect.size.width); }
double CGRectGetMidX(const CGRect& rect) { return rect.origin.x + rect.size.width / 2; }
double CGRectGetMaxX(const CGRect& rect) { return rect.origin.x + std::max(0.0, rect.size.width); }
double CGRectGetMinY(const CGRect& rect) { return rect.origin.y + std::min(0.0, rect.size.height); }
double CGRectGetMidY(const CGRect& rect) { return rect.origin.y + rect.size.height / 2; }
double CGRectGetMaxY(const CGRect& rect) { return rect.origin.y + std::max(0.0, rect.size.height); }

bool CGRectIsNull(const CGRect& rect) { return std::isinf(rect.origin.x) || std::isinf(rect.origin.y); }
bool CGRectIsEmpty(const CGRect& rect) { return CGRectIsNull(rect) || rect.size.width == 0 || rect.size.height == 0; }
bool CGRectIsInfinite(const CGRect& rect) { return rect == CGRectInfinite; }

bool CGRectContainsRect(const CGRect& rect1, const CGRect& rect2) { return CGRectUnion(rect1, rect2) == edgesInOrder(rect1); }

CGRect CGRectIntersection(const CGRect& r1, const CGRect& r2) {
  if (CGRectIsNull(r1) || CGRectIsNull(r2)) return CGRectNull;
  if (CGRectIsInfinite(r1)) return edgesInOrder(r2);
  if (CGRectIsInfinite(r2)) return edgesInOrder(r1);
  const double minX = std::max(CGRectGetMinX(r1), CGRectGetMinX(r2)), maxX = std::min(CGRectGetMaxX(r1), CGRectGetMaxX(r2));
  const double minY = std::max(CGRectGetMinY(r1), CGRectGetMinY(r2)), maxY = std::min(CGRectGetMaxY(r1), CGRectGetMaxY(r2));
  return minX < maxX && minY < maxY ? CGRectMake(minX, minY, maxX - minX, maxY - minY) : CGRectNull;
}

CGRect CGRectUnion(const CGRect& r1, const CGRect& r2) {
  if (CGRectIsEmpty(r1)) return CGRectIsEmpty(r2) ? CGRectNull : edgesInOrder(r2);
  if (CGRectIsEmpty(r2)) return edgesInOrder(r1);
  if (CGRectIsInfinite(r1) || CGRectIsInfinite(r2)) return CGRectInfinite;
  const double minX = std::min(CGRectGetMinX(r1), CGRectGetMinX(r2)), maxX = std::max(CGRectGetMaxX(r1), CGRectGetMaxX(r2));
  const double minY = std::min(CGRectGetMinY(r1), CGRectGetMinY(r2)), maxY = std::max(CGRectGetMaxY(r1), CGRectGetMaxY(r2));
  return CGRectMake(minX, minY, maxX - minX, maxY - minY);
}

CGRect CGRectIntegral(const CGRect& rect) {
  if (CGRectIsNull(rect) || CGRectIsInfinite(rect)) return rect;
  const double x = std::floor(CGRectGetMinX(rect)), y = std::floor(CGRectGetMinY(rect));
  return CGRectMake(x, y, std::ceil(CGRectGetMaxX(rect)) - x, std::ceil(CGRectGetMaxY(rect)) - y);
}

CGRect CGRectApplyAffineTransform(const CGRect& rect, const CGAffineTransform& transform) {
  if (CGRectIsNull(rect) || CGRectIsInfinite(rect)) return rect;
  const CGPoint from = CGPointApplyAffineTransform(rect.origin, transform);
  const auto [a, b, c, d, tx, ty] = transform;
  const double acrossX = a * rect.size.width, acrossY = b * rect.size.width;
  const double downX = c * rect.size.height, downY = d * rect.size.height;
  const double minX = std::min(acrossX, 0.0) + std::min(downX, 0.0), maxX = std::max(acrossX, 0.0) + std::max(downX, 0.0);
  const double minY = std::min(acrossY, 0.0) + std::min(downY, 0.0), maxY = std::max(acrossY, 0.0) + std::max(downY, 0.0);
  return CGRectMake(from.x + minX, from.y + minY, maxX - minX, maxY - minY);
}

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
  std::string text = "{";
  text += numberText(size.width);
  text += ", ";
  text += numberText(size.height);
  text += '}';
  return text;
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
