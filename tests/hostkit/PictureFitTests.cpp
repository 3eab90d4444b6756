#include "hostkit/PictureFit.h"

#include <gtest/gtest.h>

namespace vidloom {
namespace {

/// Where the corners of the stored picture land: the smallest rectangle around them.
CGRect placed(ProjectFit fit, const CGSize& stored, const CGAffineTransform& upright, const CGSize& renderSize) {
  const CGAffineTransform transform = transformOfFit(fit, stored, upright, renderSize);
  const CGPoint a = CGPointApplyAffineTransform(CGPointZero, transform);
  const CGPoint b = CGPointApplyAffineTransform(CGPointMake(stored.width, stored.height), transform);
  const CGRect corners = CGRectMake(a.x, a.y, b.x - a.x, b.y - a.y);
  return CGRectMake(CGRectGetMinX(corners), CGRectGetMinY(corners), CGRectGetMaxX(corners) - CGRectGetMinX(corners),
                    CGRectGetMaxY(corners) - CGRectGetMinY(corners));
}

TEST(PictureFit, PlacesTheUprightPicture) {
  constexpr CGAffineTransform kQuarterTurn{0, 1, -1, 0, 1080, 0};  // of 1920x1080
  struct Row {
    ProjectFit fit;
    CGSize stored;
    CGAffineTransform upright;
    CGSize renderSize;
    CGRect expected;
  };
  const Row rows[] = {
      {ProjectFit::contain, {640, 480}, CGAffineTransformIdentity, {1280, 720}, {{160, 0}, {960, 720}}},
      {ProjectFit::contain, {1280, 640}, CGAffineTransformIdentity, {640, 640}, {{0, 160}, {640, 320}}},
      {ProjectFit::contain, {1920, 1080}, kQuarterTurn, {1920, 1080}, {{656.25, 0}, {607.5, 1080}}},
      {ProjectFit::cover, {640, 480}, CGAffineTransformIdentity, {1280, 720}, {{0, -120}, {1280, 960}}},
      {ProjectFit::cover, {1920, 1080}, kQuarterTurn, {540, 540}, {{0, -210}, {540, 960}}},
      {ProjectFit::none, {1920, 1080}, kQuarterTurn, {1280, 720}, {{0, 0}, {1080, 1920}}},
      {ProjectFit::contain, {0, 0}, CGAffineTransformIdentity, {1280, 720}, {{0, 0}, {0, 0}}},
  };
  for (const Row& row : rows) EXPECT_EQ(placed(row.fit, row.stored, row.upright, row.renderSize), row.expected);
}

}  // namespace
}  // namespace vidloom
