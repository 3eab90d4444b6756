#include "vidloom/platform/pixels/PlaneOrientation.h"

#include "tests/platform/pixels/EveryTarget.h"
#include "tests/platform/pixels/TestPictures.h"

namespace vidloom {
namespace {

using namespace test;

TEST(PlaneOrientation, PutsEverySampleInItsPlaceInAllEightOrientations) {
  for (const auto& [width, height] : {std::pair{64, 64}, {16, 16}, {15, 40}, {100, 17}, {129, 131}, {1, 5}, {2, 1}, {320, 90}}) {
    const Plane source = noisePlane(width, height, 21);
    for (int bits = 0; bits < 8; ++bits) {
      const Orientation orientation{(bits & 1) != 0, (bits & 2) != 0, (bits & 4) != 0};
      onEveryTarget([&, width = width, height = height] {
        Plane result(orientation.transpose ? height : width, orientation.transpose ? width : height);
        orientPlane(source.view(), orientation, result.writable());
        for (int y = 0; y < result.height(); ++y) {
          for (int x = 0; x < result.width(); ++x) {
            const int across = orientation.flipX ? result.width() - 1 - x : x;
            const int down = orientation.flipY ? result.height() - 1 - y : y;
            const int expected = orientation.transpose ? source.at(down, across) : source.at(across, down);
            ASSERT_EQ(result.at(x, y), expected) << width << "x" << height << " orientation " << bits << " at " << x << "," << y;
          }
        }
      });
    }
  }
}

}  // namespace
}  // namespace vidloom
