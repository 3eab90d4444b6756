#include "vidloom/platform/pixels/PicturePool.h"

#include <gmock/gmock.h>

#include <thread>

#include "tests/platform/pixels/TestPictures.h"

namespace vidloom {
namespace {

using namespace test;

TEST(PicturePool, MakesAlignedPlanesThatDoNotOverlapAndOutliveIt) {
  const auto picture = PicturePool().make(1279, 37, kLimited601, true);
  ASSERT_TRUE(picture->hasAlpha());
  EXPECT_EQ(planeOf(*picture, 2).width, 640);
  EXPECT_EQ(planeOf(*picture, 2).height, 19);
  for (int plane = 0; plane < 4; ++plane) {
    const MutablePlaneView view = planeOf(*picture, plane);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(view.data) % 64, 0u);
    EXPECT_EQ(view.stride % 64, 0);
    for (int y = 0; y < view.height; ++y) std::fill_n(view.row(y), view.width, uint8_t(plane + 1));
  }
  for (int plane = 0; plane < 4; ++plane) {
    const PlaneView view = planeOf(*picture, plane).view();
    for (int y = 0; y < view.height; ++y) ASSERT_THAT(std::vector(view.row(y), view.row(y) + view.width), testing::Each(plane + 1));
  }
}

TEST(PicturePool, ReusesMemoryOfThatSizeOnceNobodyHoldsIt) {
  PicturePool pool;
  const auto memoryOf = [&pool](int width, int height) { return pool.make(width, height, kLimited709, false)->y.data; };
  auto picture = pool.make(640, 360, kLimited709, false);
  const uint8_t* memory = picture->y.data;
  auto owner = picture->owner;
  picture.reset();
  EXPECT_NE(memoryOf(640, 360), memory) << "held by its owner";
  owner.reset();
  const auto first = pool.make(640, 360, kFull601, false), second = pool.make(640, 360, kFull601, false);
  EXPECT_TRUE(first->y.data == memory || second->y.data == memory);
  EXPECT_NE(first->y.data, second->y.data);
}

TEST(PicturePool, ServesSeveralThreads) {
  PicturePool pool(3);
  std::vector<std::thread> threads;
  for (int thread = 0; thread < 4; ++thread) {
    threads.emplace_back([&pool, thread] {
      for (int i = 0; i < 200; ++i) {
        const auto picture = pool.make(32 + i % 3, 32, kLimited709, false);
        std::fill_n(planeOf(*picture, 0).row(5), 32, uint8_t(thread));
        ASSERT_EQ(sampleOf(*picture, 0, 31, 5), thread);
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
}

}  // namespace
}  // namespace vidloom
