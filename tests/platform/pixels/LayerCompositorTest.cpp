#include "vidloom/platform/pixels/LayerCompositor.h"

#include <cmath>

#include "tests/platform/pixels/TestPictures.h"

namespace vidloom {
namespace {

using namespace test;

PictureLayer layerOf(PictureRef picture, CGAffineTransform transform = CGAffineTransformIdentity, double opacity = 1) {
  const CGSize size = CGSizeMake(picture->width, picture->height);
  return {std::move(picture), size, transform, opacity};
}

TEST(LayerCompositor, HandsOnAPictureThatFillsTheOutputAsItIs) {
  LayerCompositor compositor;
  const PictureRef picture = noisePicture(64, 36, 1);
  EXPECT_EQ(compositor.compose({layerOf(picture)}, 64, 36, kLimited709), picture);
}

TEST(LayerCompositor, GivesOneBlackPictureWhereThereIsNothingToDraw) {
  LayerCompositor compositor;
  const PictureRef black = compositor.compose({}, 33, 17, kLimited709);
  EXPECT_EQ(largestDifference(*black, *flatPicture(33, 17, 16, 128, 128)), 0);
  EXPECT_EQ(compositor.compose({}, 33, 17, kLimited709), black);
}

}  // namespace
}  // namespace vidloom
