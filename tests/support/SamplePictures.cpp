#include "tests/support/SamplePictures.h"

#include <random>

#include "tests/platform/pixels/TestPictures.h"
#include "tests/support/Fixtures.h"

namespace vidloom::testing {

PictureRef numberedPicture(int index, int width, int height) {
  const auto picture = test::flatPicture(width, height, 128, 128, 128);
  drawFrameIndex(index, width, height, picture->mutableY(), picture->y.stride);
  return picture;
}

PictureRef noisyPicture(uint32_t seed, int width, int height) {
  std::minstd_rand random(seed + 1);
  return test::makePicture(width, height, {}, false, [&](int, int, int) { return 16 + static_cast<int>(random() >> 8) % 220; });
}

}  // namespace vidloom::testing
