#include "tests/support/SamplePictures.h"

#include <cstring>
#include <functional>
#include <random>

#include "tests/support/Fixtures.h"
#include "vidloom/platform/pixels/PicturePool.h"

namespace vidloom::testing {

namespace {

void fillRows(uint8_t* plane, ptrdiff_t stride, int width, int height, const std::function<uint8_t()>& value) {
  for (int row = 0; row < height; ++row) {
    for (int x = 0; x < width; ++x) plane[row * stride + x] = value();
  }
}

void fillPlanes(MutablePicture& picture, const std::function<uint8_t()>& y, const std::function<uint8_t()>& cb,
                const std::function<uint8_t()>& cr) {
  fillRows(picture.mutableY(), picture.y.stride, picture.width, picture.height, y);
  fillRows(picture.mutableCb(), picture.cb.stride, picture.chromaWidth(), picture.chromaHeight(), cb);
  fillRows(picture.mutableCr(), picture.cr.stride, picture.chromaWidth(), picture.chromaHeight(), cr);
}

}  // namespace

PictureRef flatPicture(int width, int height, uint8_t y, uint8_t cb, uint8_t cr, const PictureColor& color) {
  const auto picture = PicturePool::shared().make(width, height, color, false);
  fillPlanes(
      *picture, [&] { return y; }, [&] { return cb; }, [&] { return cr; });
  return picture;
}

PictureRef numberedPicture(int index, int width, int height) {
  const auto picture = PicturePool::shared().make(width, height, {}, false);
  const auto grey = [] { return uint8_t{128}; };
  fillPlanes(*picture, grey, grey, grey);
  drawFrameIndex(index, width, height, picture->mutableY(), picture->y.stride);
  return picture;
}

PictureRef noisyPicture(uint32_t seed, int width, int height) {
  const auto picture = PicturePool::shared().make(width, height, {}, false);
  std::minstd_rand random(seed + 1);
  const auto noise = [&] { return static_cast<uint8_t>(16 + (random() >> 8) % 220); };
  fillPlanes(*picture, noise, noise, noise);
  return picture;
}

}  // namespace vidloom::testing
