#include "vidloom/platform/pixels/AffineSampler.h"

#include <cmath>

#include "tests/platform/pixels/EveryTarget.h"
#include "tests/platform/pixels/TestPictures.h"

namespace vidloom {
namespace {

using namespace test;

double bilinear(const Plane& source, CGPoint at) {
  const double x = std::clamp(at.x - 0.5, 0.0, source.width() - 1.0), y = std::clamp(at.y - 0.5, 0.0, source.height() - 1.0);
  const int left = static_cast<int>(x), top = static_cast<int>(y);
  const int right = std::min(left + 1, source.width() - 1), bottom = std::min(top + 1, source.height() - 1);
  const double u = x - left, v = y - top;
  return (1 - v) * ((1 - u) * source.at(left, top) + u * source.at(right, top)) +
         v * ((1 - u) * source.at(left, bottom) + u * source.at(right, bottom));
}

struct AffineCase {
  const char* what;
  int width, height;
  CGAffineTransform map;
  SampleRect rect;
};

TEST(AffineSampler, IsWithinOneCodeOfBilinearSampling) {
  const AffineCase cases[] = {
      {"10 degrees", 300, 200, turnedBy(10, 1, 20, -10), {0, 0, 320, 240}},
      {"47 degrees, enlarged", 120, 90, turnedBy(47, 1.9, 150, 3), {0, 0, 301, 203}},
      {"173 degrees, clipped", 300, 200, turnedBy(173, 1.1, 300, 200), {50, 60, 200, 170}},
      {"a shear", 200, 100, {1, 0.2, -0.4, 1, 30, 0}, {0, 0, 260, 150}},
      {"mirrored", 201, 101, {-1, 0, 0, 1, 201, 0}, {0, 0, 201, 101}},
      {"upright, at a fraction", 64, 64, {1, 0, 0, 1, 0.37, 0.81}, {0, 0, 66, 66}},
      {"one sample", 1, 1, turnedBy(30, 9, 5, 2), {0, 0, 20, 20}},
      {"a very wide one", 3000, 4, turnedBy(1, 1, 0, 0), {0, 0, 3000, 60}},
  };
  PicturePool pool;
  for (const AffineCase& test : cases) {
    const Plane source = noisePlane(test.width, test.height, 31);
    const CGAffineTransform inverse = CGAffineTransformInvert(test.map);
    onEveryTarget([&] {
      const AffineSampler sampler(source.view(), test.map, test.rect, pool);
      ASSERT_TRUE(sampler.isValid());
      std::vector<uint8_t> row(static_cast<size_t>(test.rect.width()));
      double worst = 0;
      for (int y = test.rect.y0; y < test.rect.y1; ++y) {
        sampler.row(y, test.rect.x0, test.rect.x1, row.data());
        for (int x = test.rect.x0; x < test.rect.x1; ++x) {
          const double expected = bilinear(source, CGPointApplyAffineTransform(CGPointMake(x + 0.5, y + 0.5), inverse));
          worst = std::max(worst, std::abs(row[static_cast<size_t>(x - test.rect.x0)] - expected));
        }
      }
      EXPECT_LE(worst, 1.5) << test.what << " (a code, and the half that the reference is not rounded by)";
    });
  }
}

}  // namespace
}  // namespace vidloom
