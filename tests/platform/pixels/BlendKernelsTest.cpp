#include "vidloom/platform/pixels/BlendKernels.h"

#include <cmath>

#include "tests/platform/pixels/EveryTarget.h"
#include "tests/platform/pixels/TestPictures.h"

namespace vidloom {
namespace {

using namespace test;

constexpr int kCount = 301;

struct Rows {
  Plane under = noisePlane(kCount, 1, 1), over = noisePlane(kCount, 1, 2), alpha = noisePlane(kCount, 1, 3);
  std::vector<uint16_t> weights;

  Rows() {
    for (int i = 0; i < kCount; ++i) weights.push_back(static_cast<uint16_t>(i * 7 % 257));
    for (int i = 0; i < kCount; ++i) over.at(i, 0) = static_cast<uint8_t>(std::min(over.at(i, 0), alpha.at(i, 0)));
  }
};

double over(double under, double color, double alpha, double weight) {
  return color * weight / 256 + under * (1 - alpha / 255 * weight / 256);
}

TEST(BlendKernels, BlendByOneWeight) {
  const Rows rows;
  for (const int weight : {0, 1, 77, 128, 255, 256}) {
    onEveryTarget([&] {
      Plane plain(kCount, 1), premultiplied(kCount, 1), straight = rows.under;
      blendRowStraight(straight.writable().data, straight.view().data, rows.over.view().data, rows.alpha.view().data, kCount,
                       weight);
      blendRow(plain.writable().data, rows.under.view().data, rows.over.view().data, kCount, weight);
      blendRowPremultiplied(premultiplied.writable().data, rows.under.view().data, rows.over.view().data, rows.alpha.view().data,
                            kCount, weight);
      for (int x = 0; x < kCount; ++x) {
        const int under = rows.under.at(x, 0), color = rows.over.at(x, 0);
        ASSERT_EQ(plain.at(x, 0), (under * 256 + (color - under) * weight + 128) >> 8) << x;
        const double alpha = rows.alpha.at(x, 0);
        ASSERT_NEAR(premultiplied.at(x, 0), over(under, color, alpha, weight), 1.6) << x;
        ASSERT_NEAR(straight.at(x, 0), over(under, color * alpha / 255, alpha, weight), 1.1) << x;
      }
    });
  }
}

TEST(BlendKernels, BlendByAWeightForEverySample) {
  const Rows rows;
  onEveryTarget([&] {
    Plane plain = rows.under, premultiplied = rows.under;
    blendRowWeighted(plain.writable().data, rows.under.view().data, rows.over.view().data, rows.weights.data(), kCount);
    blendRowPremultipliedWeighted(premultiplied.writable().data, premultiplied.view().data, rows.over.view().data,
                                  rows.alpha.view().data, rows.weights.data(), kCount);
    for (int x = 0; x < kCount; ++x) {
      const int under = rows.under.at(x, 0), color = rows.over.at(x, 0), weight = rows.weights[static_cast<size_t>(x)];
      ASSERT_EQ(plain.at(x, 0), (under * 256 + (color - under) * weight + 128) >> 8) << x;
      ASSERT_NEAR(premultiplied.at(x, 0), over(under, color, rows.alpha.at(x, 0), weight), 1.6) << x;
    }
  });
}

TEST(BlendKernels, MultiplyEveryCodeByEveryAlpha) {
  onEveryTarget([&] {
    for (int alpha = 0; alpha < 256; ++alpha) {
      Plane color(256, 1), result(256, 1);
      for (int code = 0; code < 256; ++code) color.at(code, 0) = static_cast<uint8_t>(code);
      premultiplyRow(result.writable().data, color.view().data, Plane(256, 1, uint8_t(alpha)).view().data, 256);
      for (int code = 0; code < 256; ++code) ASSERT_EQ(result.at(code, 0), (code * alpha * 2 + 255) / 510) << code << " " << alpha;
    }
  });
}

}  // namespace
}  // namespace vidloom
