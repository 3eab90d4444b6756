#include "vidloom/platform/pixels/LayerCompositor.h"

#include <array>
#include <cmath>
#include <thread>

#include "tests/platform/pixels/EveryTarget.h"
#include "tests/platform/pixels/TestPictures.h"

namespace vidloom {
namespace {

using namespace test;

constexpr int kWhite = 235;
constexpr int kBlack = 16;

PictureLayer layerOf(PictureRef picture, CGAffineTransform transform = CGAffineTransformIdentity, double opacity = 1) {
  const CGSize size = CGSizeMake(picture->width, picture->height);
  return {std::move(picture), size, transform, opacity};
}

/// Smooth in both directions, so that interpolation of any kind comes to nearly the same.
double smoothSample(int plane, double x, double y) {
  const double slow = plane == 0 ? 0.05 : 0.02;
  return plane == 0 ? 120 + 50 * std::sin(slow * x + 1) + 40 * std::cos(slow * y)
                    : 128 + 40 * std::sin(slow * x * plane) * std::cos(slow * y + plane);
}

/// smoothSample at luma coordinates; chroma samples lie in the middle of their four luma samples.
std::shared_ptr<MutablePicture> smoothPicture(int width, int height, bool alpha = false) {
  return makePicture(width, height, kLimited709, alpha, [=](int plane, int x, int y) {
    const double middle = plane == 0 ? 0.5 : 1, step = plane == 0 ? 1 : 2;
    return plane == 3 ? 204 : static_cast<int>(std::lround(smoothSample(plane, step * x + middle, step * y + middle)));
  });
}

/// What a layer of smoothPicture should look like over a flat background: the samples well inside it and well outside it.
void expectSmooth(const Picture& output, const PictureLayer& layer, std::array<int, 3> background, double opacity) {
  const double across = layer.displaySize.width / layer.picture->width, down = layer.displaySize.height / layer.picture->height;
  const CGAffineTransform map = CGAffineTransformConcat({across, 0, 0, down, 0, 0}, layer.transform);
  const CGAffineTransform inverse = CGAffineTransformInvert(map);
  const double margin = 2.5 + 2.5 / std::sqrt(std::abs(map.a * map.d - map.b * map.c));
  int inside = 0;
  for (int plane = 0; plane < 3; ++plane) {
    const PlaneView view = planeOf(output, plane);
    const double step = plane == 0 ? 1 : 2;
    for (int y = 0; y < view.height; ++y) {
      for (int x = 0; x < view.width; ++x) {
        const CGPoint at = CGPointApplyAffineTransform(CGPointMake(step * (x + 0.5), step * (y + 0.5)), inverse);
        const double out = std::max({-at.x, -at.y, at.x - layer.picture->width, at.y - layer.picture->height});
        if (std::abs(out) < margin) continue;
        const double over = out > 0 ? background[plane] : smoothSample(plane, at.x, at.y);
        inside += out < 0;
        ASSERT_NEAR(view.row(y)[x], background[plane] + opacity * (over - background[plane]), 2.0)
            << "plane " << plane << " at " << x << "," << y;
      }
    }
  }
  EXPECT_GT(inside, 0);
}

struct PlaceCase {
  const char* what;
  int width, height;
  CGSize display;
  CGAffineTransform transform;
};

const PlaceCase kPlaces[] = {
    {"at even samples", 200, 120, {200, 120}, {1, 0, 0, 1, 20, 30}},
    {"at odd samples, cut", 200, 120, {200, 120}, {1, 0, 0, 1, -21, 131}},
    {"at a fraction", 200, 120, {200, 120}, {1, 0, 0, 1, 10.4, 7.7}},
    {"2:1 down at odd samples", 400, 300, {400, 300}, {0.5, 0, 0, 0.5, 9, 7}},
    {"2:1 down of odd sides", 401, 299, {401, 299}, {0.5, 0, 0, 0.5, 0, 0}},
    {"4:1 down", 801, 640, {801, 640}, {0.25, 0, 0, 0.25, 2, 2}},
    {"0.8, cut on all sides", 500, 400, {500, 400}, {0.8, 0, 0, 0.8, -33.3, -21.9}},
    {"1.7 up, cut on all sides", 300, 200, {300, 200}, {1.7, 0, 0, 1.7, -101, -57.5}},
    {"with a pixel aspect", 180, 144, {240, 144}, {1, 0, 0, 1, 4, 4}},
    {"down across, up down", 300, 100, {300, 100}, {0.4, 0, 0, 1.6, 10, 20}},
    {"a quarter turn counterclockwise, moved", 160, 120, {160, 120}, {0, -1, 1, 0, 31, 180}},
    {"mirrored along the diagonal", 160, 120, {160, 120}, {0, 1, 1, 0, 10, 10}},
    {"half a turn of odd sides", 161, 121, {161, 121}, {-1, 0, 0, -1, 161, 121}},
    {"a quarter turn of odd sides, reduced", 321, 241, {321, 241}, {0, 0.7, -0.7, 0, 170.3, 2}},
    {"a quarter turn, reduced", 400, 300, {400, 300}, {0, 0.5, -0.5, 0, 150, 0}},
    {"a quarter turn, enlarged and cut", 120, 90, {120, 90}, {0, -1.9, 1.9, 0, 20, 200}},
    {"17 degrees", 200, 150, {200, 150}, turnedBy(17, 1, 60, 10)},
    {"123 degrees, enlarged", 120, 100, {120, 100}, turnedBy(123, 1.8, 220, 100)},
    {"-40 degrees, reduced", 400, 300, {400, 300}, turnedBy(-40, 0.45, 10, 140)},
    {"the far end of a wide one", 3000, 60, {3000, 60}, turnedBy(1, 1, -2750, -10)},
    {"a shear", 150, 150, {150, 150}, {1, 0.2, 0.3, 1, 5, 5}},
};

TEST(LayerCompositor, PutsEveryPlaneOfALayerWhereTheTransformSaysByItsOpacityAndAlpha) {
  const auto background = layerOf(flatPicture(259, 207, 180, 90, 160));
  for (const PlaceCase& place : kPlaces) {
    SCOPED_TRACE(place.what);
    const PictureLayer opaque{smoothPicture(place.width, place.height), place.display, place.transform, 1};
    PictureLayer faint = opaque, veil = opaque;
    faint.opacity = 0.3;
    veil.picture = smoothPicture(place.width, place.height, true);
    veil.opacity = 0.5;
    onEveryTarget([&] {
      LayerCompositor compositor;
      expectSmooth(*compositor.compose({opaque}, 259, 207, kLimited709), opaque, {kBlack, 128, 128}, 1);
      expectSmooth(*compositor.compose({background, faint}, 259, 207, kLimited709), faint, {180, 90, 160}, 0.3);
      expectSmooth(*compositor.compose({background, veil}, 259, 207, kLimited709), veil, {180, 90, 160}, 0.4);
    });
  }
}

TEST(LayerCompositor, LeavesNoFringeWhereLikeLiesOverLike) {
  const auto background = layerOf(flatPicture(259, 207, kWhite, 100, 150));
  for (const PlaceCase& place : kPlaces) {
    for (const bool alpha : {false, true}) {
      const auto picture = makePicture(place.width, place.height, kLimited709, alpha, [](int plane, int x, int y) {
        return plane == 3 ? (x * 7 + y * 3) % 256 : plane == 0 ? kWhite : plane == 1 ? 100 : 150;
      });
      for (const double opacity : {1.0, 0.6}) {
        const PictureLayer layer{picture, place.display, place.transform, opacity};
        const PictureRef output = LayerCompositor().compose({background, layer}, 259, 207, kLimited709);
        EXPECT_LE(largestDifference(*output, *background.picture), alpha ? 2 : 1) << place.what << (alpha ? " with alpha" : "");
      }
    }
  }
}

TEST(LayerCompositor, CoversEdgeSamplesInPart) {
  const auto white = flatPicture(4, 4, kWhite, 128, 128);
  const CGAffineTransform moved{1, 0, 0, 1, 2.25, 3.5}, thin{0.1, 0, 0, 1, 3.3, 0}, turned = turnedBy(45, 1, 5, 2);
  const struct {
    CGAffineTransform transform;
    int x, y;
    double part;
  } rows[] = {{moved, 2, 5, 0.75}, {moved, 6, 5, 0.25}, {moved, 4, 3, 0.5}, {moved, 4, 7, 0.5}, {moved, 2, 3, 0.375},
              {moved, 4, 5, 1},    {moved, 1, 5, 0},    {moved, 4, 8, 0},   {thin, 2, 2, 0},    {thin, 3, 2, 0.4},
              {thin, 4, 2, 0},     {turned, 6, 3, 0.5}, {turned, 5, 4, 1},  {turned, 7, 3, 0}};
  for (const auto& [transform, x, y, part] : rows) {
    const PictureRef output = LayerCompositor().compose({layerOf(white, transform)}, 10, 10, kLimited709);
    EXPECT_NEAR((sampleOf(*output, 0, x, y) - kBlack) / double{kWhite - kBlack}, part, transform.b == 0 ? 0.005 : 0.1)
        << transform << x << "," << y;
  }
}

TEST(LayerCompositor, CopiesAndTurnsWithoutLoss) {
  for (int bits = 0; bits < 16; ++bits) {
    const int width = bits < 8 ? 134 : 10, height = bits < 8 ? 98 : 6;
    const auto noise = noisePicture(width, height, 8);
    const double x = (bits & 1) != 0 ? -1 : 1, y = (bits & 2) != 0 ? -1 : 1;
    const CGAffineTransform map =
        (bits & 4) != 0 ? CGAffineTransform{0, y, x, 0, 140, 140} : CGAffineTransform{x, 0, 0, y, 140, 140};
    const CGAffineTransform inverse = CGAffineTransformInvert(map);
    const auto expected = makePicture(280, 280, kLimited709, false, [&](int plane, int column, int row) {
      const int step = plane == 0 ? 1 : 2;
      const CGPoint at = CGPointApplyAffineTransform(CGPointMake(step * (column + 0.5), step * (row + 0.5)), inverse);
      const bool isOutside = at.x < 0 || at.x >= width || at.y < 0 || at.y >= height;
      return isOutside ? (plane == 0 ? kBlack : 128) : sampleOf(*noise, plane, int(at.x / step), int(at.y / step));
    });
    onEveryTarget([&] {
      EXPECT_EQ(largestDifference(*LayerCompositor().compose({layerOf(noise, map)}, 280, 280, kLimited709), *expected), 0) << map;
    });
  }
}

TEST(LayerCompositor, HandsOnAPictureThatFillsTheOutputAsItIs) {
  LayerCompositor compositor;
  const PictureRef picture = noisePicture(64, 36, 1), hidden = noisePicture(64, 36, 2);
  EXPECT_EQ(compositor.compose({layerOf(picture)}, 64, 36, kLimited709), picture);
  EXPECT_EQ(compositor.compose({layerOf(hidden, {1, 0.1, 0, 1, 0, 0}), layerOf(picture)}, 64, 36, kLimited709), picture);
  EXPECT_EQ(compositor.compose({{picture, {128, 36}, {0.5, 0, 0, 1, 0, 0}, 1}}, 64, 36, kLimited709), picture);
}

TEST(LayerCompositor, SharesThePlanesOfAPictureThatIsOnlyCutOrTaggedAnew) {
  LayerCompositor compositor;
  const PictureRef picture = noisePicture(64, 48, 1);
  PictureColor tagged = kLimited709;
  tagged.transfer = "iec61966-2-1";
  const PictureRef retagged = compositor.compose({layerOf(picture)}, 64, 48, tagged);
  EXPECT_EQ(retagged->y.data, picture->y.data);
  EXPECT_EQ(retagged->color, tagged);
  const PictureRef cut = compositor.compose({layerOf(picture, {1, 0, 0, 1, -4, -2})}, 51, 43, kLimited709);
  EXPECT_EQ(cut->width, 51);
  EXPECT_EQ(cut->cr.data, picture->cr.data + picture->cr.stride + 2);
  const PictureRef odd = compositor.compose({layerOf(picture, {1, 0, 0, 1, -3, -2})}, 50, 40, kLimited709);
  EXPECT_EQ(sampleOf(*odd, 0, 7, 7), sampleOf(*picture, 0, 10, 9));
}

TEST(LayerCompositor, GivesOneBlackPictureWhereThereIsNothingToDraw) {
  LayerCompositor compositor;
  const PictureRef black = compositor.compose({}, 33, 17, kLimited709);
  EXPECT_EQ(largestDifference(*black, *flatPicture(33, 17, kBlack, 128, 128)), 0);
  EXPECT_EQ(largestDifference(*compositor.compose({}, 33, 17, kFull601), *flatPicture(33, 17, 0, 128, 128)), 0);
  const auto picture = noisePicture(8, 8, 1);
  const double nan = std::nan("");
  const PictureLayer nothing[] = {
      {nullptr, {8, 8}, CGAffineTransformIdentity, 1},
      layerOf(picture, CGAffineTransformIdentity, 0),
      layerOf(picture, CGAffineTransformIdentity, nan),
      layerOf(picture, {0, 0, 0, 0, 0, 0}),
      layerOf(picture, {1, 1, 1, 1, 0, 0}),
      layerOf(picture, {nan, 0, 0, 1, 0, 0}),
      layerOf(picture, {1, 0, 0, 1, 1e300, 0}),
      layerOf(picture, {1, 0, 0, 1, 33, 0}),
      {picture, {0, 0}, CGAffineTransformIdentity, 1},
  };
  const PictureRef again = compositor.compose({}, 33, 17, kLimited709);
  for (const PictureLayer& layer : nothing) EXPECT_EQ(compositor.compose({layer}, 33, 17, kLimited709), again) << layer.transform;
}

TEST(LayerCompositor, GivesTheSamePictureForTheSameLayers) {
  LayerCompositor compositor;
  PictureRef picture = noisePicture(64, 36, 1);
  const PictureLayer layer = layerOf(picture, {0.7, 0, 0, 0.7, 3, 3}, 0.8);
  const PictureRef first = compositor.compose({layer}, 64, 36, kLimited709);
  EXPECT_EQ(compositor.compose({layer}, 64, 36, kLimited709), first);
  PictureLayer moved = layer, fainter = layer, other = layer;
  moved.transform.tx = 4;
  fainter.opacity = 0.7;
  other.picture = noisePicture(64, 36, 1);
  for (const PictureLayer& changed : {moved, fainter, other}) {
    EXPECT_NE(compositor.compose({changed}, 64, 36, kLimited709), first);
    EXPECT_NE(compositor.compose({layer}, 64, 36, kLimited709), first);
  }
  EXPECT_NE(compositor.compose({layer}, 62, 36, kLimited709)->width, 64);
}

TEST(LayerCompositor, DissolvesBetweenPicturesThatFillTheOutput) {
  const auto below = noisePicture(65, 37, 1), above = noisePicture(65, 37, 2);
  const auto veil = makePicture(65, 37, kLimited709, true,
                                [&](int plane, int x, int y) { return plane == 3 ? 64 : sampleOf(*above, plane, x, y); });
  const auto faint = [](const PictureRef& picture, double opacity) { return layerOf(picture, CGAffineTransformIdentity, opacity); };
  const struct {
    std::vector<PictureLayer> layers;
    double part;
    int tolerance;
  } cases[] = {
      {{layerOf(below), faint(above, 0.3)}, 0.3, 1},
      {{layerOf(below), layerOf(veil), faint(above, 0)}, 64 / 255.0, 2},
      {{layerOf(below), faint(above, 0.5), faint(below, 0.5)}, 0.25, 2},
  };
  for (const auto& [layers, part, tolerance] : cases) {
    const auto expected = makePicture(65, 37, kLimited709, false, [&, part = part](int plane, int x, int y) {
      const int under = sampleOf(*below, plane, x, y);
      return static_cast<int>(std::lround(under + part * (sampleOf(*above, plane, x, y) - under)));
    });
    EXPECT_LE(largestDifference(*LayerCompositor().compose(layers, 65, 37, kLimited709), *expected), tolerance) << part;
  }
}

TEST(LayerCompositor, ComposesOnSeveralThreadsAtOnce) {
  LayerCompositor compositor;
  const auto picture = noisePicture(200, 120, 4);
  const auto layersAt = [&](int step) {
    return std::vector{layerOf(picture, {0.9, 0, 0, 0.9, step * 0.5, 3}), layerOf(picture, turnedBy(step, 0.5, 50, 20), 0.5)};
  };
  std::vector<PictureRef> expected;
  for (int step = 0; step < 8; ++step) expected.push_back(LayerCompositor().compose(layersAt(step), 200, 120, kLimited709));
  std::vector<std::thread> threads;
  for (int thread = 0; thread < 4; ++thread) {
    threads.emplace_back([&, thread] {
      for (int i = 0; i < 40; ++i) {
        const int step = (i + thread) % 8;
        ASSERT_EQ(largestDifference(*compositor.compose(layersAt(step), 200, 120, kLimited709), *expected[size_t(step)]), 0);
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
}

TEST(LayerCompositor, LetsGoOfItsLayers) {
  LayerCompositor compositor;
  auto picture = noisePicture(64, 36, 1);
  const std::weak_ptr<Picture> watched = picture;
  compositor.compose({layerOf(picture, {0.7, 0, 0, 0.7, 3, 3})}, 64, 36, kLimited709);
  picture.reset();
  EXPECT_TRUE(watched.expired());
}

TEST(LayerCompositor, ConvertsColoursOfEveryLayerToTheOutputs) {
  // Red in every matrix and range.
  const std::pair<PictureColor, std::array<int, 3>> reds[] = {
      {kLimited601, {81, 90, 240}}, {kFull601, {76, 85, 255}}, {kLimited709, {63, 102, 240}}, {kFull709, {54, 99, 255}}};
  for (const auto& [from, source] : reds) {
    for (const auto& [to, expected] : reds) {
      for (const PlaceCase& place : kPlaces) {
        const auto picture = flatPicture(place.width, place.height, source[0], source[1], source[2], from);
        const PictureRef output = LayerCompositor().compose({{picture, place.display, place.transform, 1}}, 259, 207, to);
        const CGPoint middle = CGPointApplyAffineTransform({place.display.width / 2, place.display.height / 2}, place.transform);
        const int x = std::clamp(static_cast<int>(middle.x), 0, 258), y = std::clamp(static_cast<int>(middle.y), 0, 206);
        for (int plane = 0; plane < 3; ++plane) {
          const int step = plane == 0 ? 1 : 2;
          EXPECT_NEAR(sampleOf(*output, plane, x / step, y / step), expected[plane], 2) << place.what << ", plane " << plane;
        }
      }
    }
  }
}

TEST(LayerCompositor, DoesNotLetTheColourOfTransparentSamplesShow) {
  // Opaque white with a transparent black half, enlarged: no grey between.
  const auto half = makePicture(8, 8, kLimited709, true, [](int plane, int x, int) {
    return plane == 3 ? (x < 4 ? 255 : 0) : plane == 0 ? (x < 4 ? kWhite : kBlack) : 128;
  });
  LayerCompositor compositor;
  const auto white = layerOf(flatPicture(80, 80, kWhite, 128, 128));
  const PictureRef output = compositor.compose({white, {half, {80, 80}, CGAffineTransformIdentity, 1}}, 80, 80, kLimited709);
  EXPECT_LE(largestDifference(*output, *white.picture), 1);
}

TEST(LayerCompositor, RefusesSizesThatNoPictureHas) {
  LayerCompositor compositor;
  const auto layer = layerOf(noisePicture(8, 8, 1));
  EXPECT_EQ(compositor.compose({layer}, 0, 8, kLimited709), nullptr);
  EXPECT_EQ(compositor.compose({}, 8, -1, kLimited709), nullptr);
  EXPECT_EQ(compositor.compose({layer}, 40000, 8, kLimited709), nullptr);
}

}  // namespace
}  // namespace vidloom
