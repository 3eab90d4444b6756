#include <cmath>

#include "vidloom/platform/quartzcore/UIBezierPath.h"
#include "vidloom/speed/PWBezier.h"

namespace vidloom {
namespace {

CGPoint twice(double value) { return {value, value}; }

void expectNear(const CGPoint& actual, const CGPoint& expected) {
  EXPECT_NEAR(actual.x, expected.x, 1e-12);
  EXPECT_NEAR(actual.y, expected.y, 1e-12);
}

TEST(Bezier, coefficientsDescribeTheSamePoints) {
  const auto bezier = PWBezier::initWithOrigin({0, 0}, {0, 1}, {1, 1}, {1, 0});
  EXPECT_EQ(bezier->A(), (CGPoint{-2, 0}));
  EXPECT_EQ(bezier->B(), (CGPoint{3, -3}));
  EXPECT_EQ(bezier->C(), (CGPoint{0, 3}));
  EXPECT_EQ(bezier->D(), (CGPoint{0, 0}));
  EXPECT_EQ(bezier->outputAtT(0.5), (CGPoint{0.5, 0.75}));
  EXPECT_EQ(bezier->outputAtT(0), bezier->C0());
  EXPECT_EQ(bezier->outputAtT(1), bezier->C3());
  EXPECT_EQ(bezier->outputXAtT(2), -4) << "goes on outside 0 to 1";
}

/// The expected bits come from exact fractions, rounded once where the arithmetic rounds.
TEST(Bezier, everyRoundingIsTheStatedOne) {
  const auto bezier = PWBezier::initWithOrigin(twice(0.1), twice(12.7), twice(-3.3), twice(98.6));
  EXPECT_EQ(bezier->A().x, 0x1.25p+7);
  EXPECT_EQ(bezier->B().x, -0x1.5733333333333p+6);
  EXPECT_EQ(bezier->C().x, 0x1.2e66666666666p+5);
  EXPECT_EQ(bezier->D().x, 0x1.999999999999ap-4);
  const double table[][2] = {{0.07, 0x1.301b2e59af9ecp+1},
                             {0.3333333333333333, 0x1.12f684bda12f6p+3},
                             {0.99, 0x1.7e5019d2391d5p+6},
                             {1.7, 0x1.0c13851eb851ep+9},
                             {-0.3, -0x1.6eae147ae147ap+4}};
  for (const auto& [t, value] : table) {
    EXPECT_EQ(bezier->outputXAtT(t), value) << t;
    EXPECT_EQ(bezier->outputYAtT(t), value) << t;
  }
  const auto straight = PWBezier::initWithStartPoint(twice(0.1), twice(98.6));
  EXPECT_EQ(straight->C1(), twice(0x1.0777777777777p+5));
  EXPECT_EQ(straight->C2(), twice(0x1.0711111111111p+6));
  const auto through = PWBezier::initWithStartPoint(twice(0.1), twice(12.7), twice(-3.3), twice(98.6));
  EXPECT_EQ(through->C1(), twice(0x1.2f55555555556p+6));
  EXPECT_EQ(through->C2(), twice(-0x1.bc55555555556p+6));
}

TEST(Bezier, straightSegmentsRunEvenlyInOneDirection) {
  const auto line = PWBezier::initWithStartPoint({0, 0}, {3, 3});
  expectNear(line->C1(), {1, 1});
  expectNear(line->C2(), {2, 2});
  expectNear(line->outputAtT(0.5), {1.5, 1.5});
  for (const double t : {0.0, 0.25, 0.5, 1.0}) EXPECT_NEAR(line->tangentAngleAtT(t), M_PI / 4, 1e-12) << t;
  const auto turned = PWBezier::initWithOrigin({0, 0}, {0, 1}, {1, 1}, {1, 0});
  EXPECT_NEAR(turned->tangentAngleAtT(0), M_PI / 2, 1e-12);
  EXPECT_NEAR(turned->tangentAngleAtT(0.5), 0, 1e-12);
  EXPECT_NEAR(turned->tangentAngleAtT(1), -M_PI / 2, 1e-12);
}

TEST(Bezier, theCurveThroughFourPointsMeetsTheMiddleOnes) {
  const auto curve = PWBezier::initWithStartPoint({0, 0}, {1, 2}, {2, 2}, {3, 0});
  expectNear(curve->outputAtT(1.0 / 3), {1, 2});
  expectNear(curve->outputAtT(2.0 / 3), {2, 2});
  EXPECT_EQ(curve->C0(), (CGPoint{0, 0}));
  EXPECT_EQ(curve->C3(), (CGPoint{3, 0}));
}

TEST(Bezier, copiesAndPathsHoldTheSameFourPoints) {
  const auto bezier = PWBezier::initWithOrigin({1, 2}, {3, 4}, {5, 7}, {9, 8});
  const auto copy = bezier->copy();
  EXPECT_NE(copy, bezier);
  EXPECT_EQ(copy->C1(), bezier->C1());
  EXPECT_EQ(copy->outputAtT(0.3), bezier->outputAtT(0.3));
  using Element = UIBezierPath::Element;
  const std::vector<Element> expected{{Element::Kind::move, {}, {}, {1, 2}}, {Element::Kind::curve, {3, 4}, {5, 7}, {9, 8}}};
  EXPECT_EQ(bezier->bezierPath()->elements(), expected);
}

}  // namespace
}  // namespace vidloom
