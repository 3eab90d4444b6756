// Points, sizes, rectangles and affine transforms in double precision.
#pragma once

#include <limits>
#include <ostream>
#include <string>

namespace vidloom {

struct CGPoint {
  double x = 0, y = 0;
  friend constexpr bool operator==(const CGPoint&, const CGPoint&) = default;
};

struct CGSize {
  double width = 0, height = 0;
  friend constexpr bool operator==(const CGSize&, const CGSize&) = default;
};

struct CGRect {
  CGPoint origin;
  CGSize size;
  friend constexpr bool operator==(const CGRect&, const CGRect&) = default;
};

/// x' = a x + c y + tx, y' = b x + d y + ty. A default-made one is the all-zero matrix, which sends everything to (0, 0).
struct CGAffineTransform {
  double a = 0, b = 0, c = 0, d = 0, tx = 0, ty = 0;
  friend constexpr bool operator==(const CGAffineTransform&, const CGAffineTransform&) = default;
};

inline constexpr CGPoint CGPointZero{};
inline constexpr CGSize CGSizeZero{};
inline constexpr CGRect CGRectZero{};
/// No rectangle at all: the intersection of two that do not meet.
inline constexpr CGRect CGRectNull{{std::numeric_limits<double>::infinity(), std::numeric_limits<double>::infinity()}, {}};
/// The whole plane.
inline constexpr CGRect CGRectInfinite{{-std::numeric_limits<double>::max() / 2, -std::numeric_limits<double>::max() / 2},
                                       {std::numeric_limits<double>::max(), std::numeric_limits<double>::max()}};
inline constexpr CGAffineTransform CGAffineTransformIdentity{1, 0, 0, 1, 0, 0};

constexpr CGPoint CGPointMake(double x, double y) { return {x, y}; }
constexpr CGSize CGSizeMake(double width, double height) { return {width, height}; }
constexpr CGRect CGRectMake(double x, double y, double width, double height) { return {{x, y}, {width, height}}; }
constexpr CGAffineTransform CGAffineTransformMake(double a, double b, double c, double d, double tx, double ty) {
  return {a, b, c, d, tx, ty};
}

/// The edges and the middle of a rectangle whose size may be negative: the smaller edge is min, the larger one max.
double CGRectGetMinX(const CGRect& rect);
double CGRectGetMidX(const CGRect& rect);
double CGRectGetMaxX(const CGRect& rect);
double CGRectGetMinY(const CGRect& rect);
double CGRectGetMidY(const CGRect& rect);
double CGRectGetMaxY(const CGRect& rect);

bool CGRectIsNull(const CGRect& rect);
/// True for a rectangle without area and for CGRectNull.
bool CGRectIsEmpty(const CGRect& rect);
bool CGRectIsInfinite(const CGRect& rect);
bool CGRectContainsRect(const CGRect& rect1, const CGRect& rect2);
/// CGRectNull where they do not meet.
CGRect CGRectIntersection(const CGRect& r1, const CGRect& r2);
/// The smallest rectangle that holds both; of an empty one only the other counts.
CGRect CGRectUnion(const CGRect& r1, const CGRect& r2);
/// The smallest rectangle with whole numbers that holds it.
CGRect CGRectIntegral(const CGRect& rect);
/// The smallest rectangle that holds the transformed one. CGRectNull and CGRectInfinite stay what they are.
CGRect CGRectApplyAffineTransform(const CGRect& rect, const CGAffineTransform& transform);

/// The transform that applies t1 first and then t2.
CGAffineTransform CGAffineTransformConcat(const CGAffineTransform& t1, const CGAffineTransform& t2);
/// The inverse; a transform that has none is returned unchanged.
CGAffineTransform CGAffineTransformInvert(const CGAffineTransform& transform);
CGPoint CGPointApplyAffineTransform(const CGPoint& point, const CGAffineTransform& transform);

/// "{w, h}" with the numbers as "%.17g" prints them: {1080, 1920}, {0.5, 720.25}.
std::string NSStringFromCGSize(const CGSize& size);

std::ostream& operator<<(std::ostream& out, const CGPoint& point);
std::ostream& operator<<(std::ostream& out, const CGSize& size);
std::ostream& operator<<(std::ostream& out, const CGRect& rect);
std::ostream& operator<<(std::ostream& out, const CGAffineTransform& transform);

}  // namespace vidloom
