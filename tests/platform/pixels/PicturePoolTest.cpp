#include "vidloom/platform/pixels/PicturePool.h"

#include <gmock/gmock.h>

#include <optional>
#include <set>
#include <thread>

#include "tests/platform/pixels/TestPictures.h"

namespace vidloom {
namespace {

using namespace test;

TEST(PicturePool, MakesAlignedPlanesThatDoNotOverlap) {
  PicturePool pool;
  for (const bool alpha : {false, true}) {
    const auto picture = pool.make(1279, 37, kLimited601, alpha);
    EXPECT_EQ(picture->chromaWidth(), 640);
    EXPECT_EQ(picture->chromaHeight(), 19);
    EXPECT_EQ(picture->color, kLimited601);
    EXPECT_EQ(picture->hasAlpha(), alpha);
    const int planes = alpha ? 4 : 3;
    for (int plane = 0; plane < planes; ++plane) {
      const MutablePlaneView view = planeOf(*picture, plane);
      EXPECT_EQ(reinterpret_cast<uintptr_t>(view.data) % 64, 0u);
      EXPECT_EQ(view.stride % 64, 0);
      EXPECT_GT(view.stride, view.width);
      for (int y = 0; y < view.height; ++y) std::fill_n(view.row(y), view.width, uint8_t(plane + 1));
    }
    for (int plane = 0; plane < planes; ++plane) {
      const PlaneView view = planeOf(*picture, plane).view();
      for (int y = 0; y < view.height; ++y)
        ASSERT_THAT(std::vector(view.row(y), view.row(y) + view.width), testing::Each(plane + 1));
    }
  }
}

TEST(PicturePool, ReusesMemoryOnceNobodyHoldsIt) {
  PicturePool pool;
  auto picture = pool.make(640, 360, kLimited709, false);
  const uint8_t* memory = picture->y.data;
  auto owner = picture->owner;
  picture.reset();
  EXPECT_NE(pool.make(640, 360, kLimited709, false)->y.data, memory) << "held by its owner";
  owner.reset();
  std::set<const uint8_t*> blocks;
  std::vector<std::shared_ptr<MutablePicture>> pictures;
  for (int i = 0; i < 2; ++i) pictures.push_back(pool.make(640, 360, kFull601, false));
  for (const auto& made : pictures) blocks.insert(made->y.data);
  EXPECT_TRUE(blocks.contains(memory));
  pictures.clear();
  for (const int width : {16, 1920}) {
    EXPECT_FALSE(blocks.contains(pool.make(width, width, kLimited709, false)->y.data)) << "blocks of another size, " << width;
  }
}

TEST(PicturePool, MayGoBeforeItsPictures) {
  std::optional<PicturePool> pool(std::in_place);
  const auto picture = pool->make(320, 180, kLimited709, true);
  pool.reset();
  std::fill_n(planeOf(*picture, 3).row(179), 320, uint8_t(7));
  EXPECT_EQ(sampleOf(*picture, 3, 319, 179), 7);
}

TEST(PicturePool, RefusesSizesThatNoPictureHas) {
  PicturePool pool;
  for (const auto& [width, height] : {std::pair{0, 10}, {10, 0}, {-1, 10}, {32769, 1}, {1, 32769}}) {
    EXPECT_EQ(pool.make(width, height, kLimited709, false), nullptr) << width << "x" << height;
  }
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
