#include "vidloom/platform/ffmpeg/PacketSpool.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <random>

#include "tests/support/Fixtures.h"

namespace vidloom::testing {
namespace {

TEST(PacketSpoolTest, GivesBackWhatWentInWhereverItLies) {
  const auto folder = scratchFolder() / "spool";
  std::filesystem::create_directories(folder);
  std::mt19937 random(20240229);
  PacketSpool spool(folder, 5000);
  std::vector<uint8_t> model;
  for (int step = 0; step < 400; ++step) {
    std::vector<uint8_t> packet(random() % (step % 50 == 0 ? 20000 : 900));
    for (uint8_t& byte : packet) byte = static_cast<uint8_t>(random());
    ASSERT_EQ(spool.append(packet), 0);
    model.insert(model.end(), packet.begin(), packet.end());
    ASSERT_EQ(spool.size(), model.size());
    const size_t from = random() % (model.size() + 1);
    std::vector<uint8_t> part(random() % (model.size() - from + 1));
    ASSERT_EQ(spool.read(from, part), 0);
    ASSERT_TRUE(std::equal(part.begin(), part.end(), model.begin() + static_cast<ptrdiff_t>(from)))
        << "seed 20240229, step " << step;
  }
  EXPECT_TRUE(std::filesystem::is_empty(folder));
}

TEST(PacketSpoolTest, WhatWasNotDiscardedStaysReadable) {
  PacketSpool spool(scratchFolder(), 1 << 20);
  for (int i = 0; i < 20; ++i) ASSERT_EQ(spool.append(std::vector<uint8_t>(1 << 20, static_cast<uint8_t>(i))), 0);
  const uint64_t kept = (uint64_t{11} << 20) + 5;
  spool.discardBefore(kept);
  std::vector<uint8_t> tail(static_cast<size_t>(spool.size() - kept));
  ASSERT_EQ(spool.read(kept, tail), 0);
  EXPECT_EQ(tail.front(), 11);
  EXPECT_EQ(tail.back(), 19);
}

TEST(PacketSpoolTest, NeedsTheFolderOnlyWhenMemoryIsFull) {
  PacketSpool spool(scratchFolder() / "missing", 1000);
  EXPECT_EQ(spool.append(std::vector<uint8_t>(600)), 0);
  EXPECT_EQ(spool.append(std::vector<uint8_t>(600)), ENOENT);
}

}  // namespace
}  // namespace vidloom::testing
