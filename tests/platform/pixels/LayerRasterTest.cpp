#include "vidloom/platform/pixels/LayerRaster.h"

#include <gtest/gtest.h>

#include <cmath>

#include "tests/platform/pixels/TestPictures.h"

namespace vidloom {
namespace {

using namespace test;

constexpr int kSide = 96;

/// Soft in colour and alpha, so that ways of resampling agree.
PictureRef softPicture(int width, int height, bool alpha) {
  return makePicture(width, height, kLimited709, alpha, [=](int plane, int x, int y) {
    const double step = plane == 1 || plane == 2 ? 2 : 1;
    const double wave = std::sin(0.08 * step * x + plane) * std::cos(0.07 * step * y);
    return static_cast<int>(std::lround(plane == 3 ? 130 + 120 * wave : 128 + 70 * wave));
  });
}

PictureRef overNoise(const PictureLayer& layer, const PictureRef& noise) {
  const PictureLayer ground{noise, CGSizeMake(kSide, kSide)};
  return LayerCompositor().compose(layer.picture ? std::vector{ground, layer} : std::vector{ground}, kSide, kSide, kLimited709);
}

TEST(LayerRasterTest, LooksLikeTheLayerItself) {
  const CGAffineTransform maps[] = {{1, 0, 0, 1, 6, -8},         {1, 0, 0, 1, 7, 3.5}, {0.45, 0, 0, 0.6, 20, 11},
                                    {1.8, 0, 0, 1.3, -20.25, 4}, {0, 1, -1, 0, 70, 2}, {0.7, 0.4, -0.4, 0.7, 30, 5},
                                    {4, 0, 0, 4, -60, -60},      {1, 0, 0, 1, 500, 0}};
  const PictureRef noise = noisePicture(kSide, kSide, 5);
  ScalePlanCache plans;
  for (const bool alpha : {false, true}) {
    for (const double opacity : {1.0, 0.4}) {
      for (const bool clipped : {false, true}) {
        for (const CGAffineTransform& map : maps) {
          PictureLayer layer{softPicture(64, 48, alpha), CGSizeMake(64, 48), map, opacity};
          if (clipped) layer.clip = CGRectMake(5.5, 4, 41, 30.25);
          const auto raster = rasterLayer(layer, kSide, kSide, kLimited709, {PicturePool::shared(), plans});
          ASSERT_TRUE(raster);
          if (raster->picture) {
            EXPECT_EQ(raster->transform.a, 1);
            EXPECT_EQ(std::fmod(raster->transform.tx, 2), 0);
            EXPECT_EQ(std::fmod(raster->transform.ty, 2), 0);
            EXPECT_LE(raster->transform.tx + raster->displaySize.width, std::max<double>(kSide, map.tx + 64));
          }
          EXPECT_LE(largestDifference(*overNoise(layer, noise), *overNoise(*raster, noise)), 7)
              << map << (alpha ? " alpha" : "") << (clipped ? " clipped" : "") << " opacity " << opacity;
        }
      }
    }
  }
}

TEST(LayerRasterTest, CoversItsPartOfThePictureOnly) {
  const PictureRef white = flatPicture(64, 64, 235, 128, 128);
  PictureLayer layer{white, CGSizeMake(64, 64), CGAffineTransformMake(1, 0, 0, 1, 10, 10), 1, CGRectMake(4, 6, 20.5, 10)};
  const PictureRef frame = LayerCompositor().compose({layer}, kSide, kSide, kLimited709);
  for (const auto& [x, y, luma] :
       {std::tuple{14, 16, 235}, {13, 16, 16}, {14, 15, 16}, {33, 25, 235}, {34, 25, 126}, {35, 25, 16}, {33, 26, 16}}) {
    EXPECT_NEAR(sampleOf(*frame, 0, x, y), luma, luma == 126 ? 1 : 0) << x << "," << y;
  }
}

}  // namespace
}  // namespace vidloom
