#include <cmath>

#include "vidloom/platform/quartzcore/UIBezierPath.h"
#include "vidloom/speed/PWBezier.h"

namespace vidloom {
namespace {

CGPoint twice(double value) { return {value, value}; }

/// The expected bits come from exact fractions, rounded once where the arithmetic rounds.
TEST(Bezier, everyRoundingIsTheStatedOne) {
  const auto bezier = PWBezier::initWithOrigin(twice(0.1), twice(12.7), twice(-3.3), twice(98.6));
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

TEST(Bezier, tangentsAndPointsLieOnTheCurve) {
  const auto turned = PWBezier::initWithOrigin({0, 0}, {0, 1}, {1, 1}, {1, 0});
  const double angles[][2] = {{0, M_PI / 2}, {0.5, 0}, {1, -M_PI / 2}};
  for (const auto& [t, angle] : angles) EXPECT_NEAR(turned->tangentAngleAtT(t), angle, 1e-12) << t;
  const auto curve = PWBezier::initWithStartPoint({0, 0}, {1, 2}, {2, 2}, {3, 0});
  EXPECT_NEAR(curve->outputAtT(1.0 / 3).x, 1, 1e-12);
  EXPECT_NEAR(curve->outputAtT(2.0 / 3).y, 2, 1e-12);
}

TEST(Bezier, copiesAndPathsHoldTheSameFourPoints) {
  const auto bezier = PWBezier::initWithOrigin({1, 2}, {3, 4}, {5, 7}, {9, 8});
  using Element = UIBezierPath::Element;
  const std::vector<Element> expected{{Element::Kind::move, {}, {}, {1, 2}}, {Element::Kind::curve, {3, 4}, {5, 7}, {9, 8}}};
  EXPECT_EQ(bezier->copy()->bezierPath()->elements(), expected);
}

}  // namespace
}  // namespace vidloom
