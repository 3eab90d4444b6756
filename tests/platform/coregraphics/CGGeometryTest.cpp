#include "vidloom/platform/coregraphics/CGGeometry.h"

#include <array>
#include <cmath>

namespace vidloom {
namespace {

TEST(CGRect, NormalisesNegativeSizes) {
  using Row = std::pair<CGRect, std::array<double, 6>>;
  for (const auto& [rect, expected] :
       {Row{{{10, 100}, {20, -40}}, {10, 20, 30, 60, 80, 100}}, Row{{{0, 0}, {-3, 5}}, {-3, -1.5, 0, 0, 2.5, 5}}}) {
    const std::array edges{CGRectGetMinX(rect), CGRectGetMidX(rect), CGRectGetMaxX(rect),
                           CGRectGetMinY(rect), CGRectGetMidY(rect), CGRectGetMaxY(rect)};
    EXPECT_EQ(edges, expected) << rect;
  }
}

TEST(CGAffineTransform, AppliesTheFirstOfAConcatenationFirst) {
  const CGAffineTransform quarterTurn{0, 1, -1, 0, 0, 0}, move{1, 0, 0, 1, 100, 0};
  EXPECT_EQ(CGPointApplyAffineTransform({2, 3}, CGAffineTransformConcat(quarterTurn, move)), (CGPoint{97, 2}));
  EXPECT_EQ(CGPointApplyAffineTransform({2, 3}, CGAffineTransformConcat(move, quarterTurn)), (CGPoint{-3, 102}));
  EXPECT_EQ(CGPointApplyAffineTransform({2, 3}, CGAffineTransform{}), CGPointZero);
}

TEST(CGAffineTransform, InvertsWhatHasAnInverse) {
  const CGAffineTransform transform{2, 1, -4, 2, 30, -8};
  const CGPoint there = CGPointApplyAffineTransform({5, 7}, transform);
  EXPECT_EQ(CGPointApplyAffineTransform(there, CGAffineTransformInvert(transform)), (CGPoint{5, 7}));
  const CGAffineTransform flat{1, 1, 1, 1, 5, 6};
  EXPECT_EQ(CGAffineTransformInvert(flat), flat);
}

TEST(CGSize, ReadsLikeTheSystemPrintsIt) {
  for (const auto& [text, size] : std::map<std::string, CGSize>{{"{1080, 1920}", {1080, 1920}},
                                                                {"{0.5, 720.25}", {0.5, 720.25}},
                                                                {"{0.10000000000000001, 0}", {0.1, 0}},
                                                                {"{inf, nan}", {INFINITY, NAN}}}) {
    EXPECT_EQ(NSStringFromCGSize(size), text);
  }
}

}  // namespace
}  // namespace vidloom
