#include "vidloom/platform/ffmpeg/ScratchFile.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <string>

#include "tests/platform/ffmpeg/MovieMaker.h"

namespace vidloom::testing {
namespace {

std::span<const uint8_t> bytesOf(const std::string& text) { return {reinterpret_cast<const uint8_t*>(text.data()), text.size()}; }

TEST(ScratchFileTest, AppearsWholeUnderItsNameAndReplacesWhatIsThere) {
  const auto destination = freshDestination("file");
  for (const std::string content : {"first", "second"}) {
    int errnoValue = 0;
    const auto file = ScratchFile::openFor(destination, errnoValue);
    ASSERT_TRUE(file) << errnoValue;
    ASSERT_EQ(file->append(bytesOf(content)), 0);
    ASSERT_EQ(file->moveTo(destination), 0);
    EXPECT_EQ(readFile(destination), content);
    EXPECT_EQ(filesBeside(destination), 1u);
  }
}

TEST(ScratchFileTest, ReadingPastTheEndIsAnError) {
  int errnoValue = 0;
  const auto file = ScratchFile::openUnnamed(scratchFolder(), errnoValue);
  ASSERT_TRUE(file);
  ASSERT_EQ(file->append(bytesOf("abcdef")), 0);
  std::vector<uint8_t> bytes(3);
  EXPECT_EQ(file->read(2, bytes), 0);
  EXPECT_EQ(std::string(bytes.begin(), bytes.end()), "cde");
  EXPECT_EQ(file->read(4, bytes), EIO);
}

TEST(ScratchFileTest, AFileThatCannotGetItsNameGoesWithTheObject) {
  const auto destination = freshDestination("file");
  std::filesystem::create_directories(destination / "full");
  int errnoValue = 0;
  auto file = ScratchFile::openFor(destination, errnoValue);
  ASSERT_TRUE(file);
  EXPECT_NE(file->moveTo(destination), 0);
  file.reset();
  EXPECT_EQ(filesBeside(destination), 1u);
}

TEST(ScratchFileTest, LongNamesHaveTemporaryNamesToo) {
  const auto destination = freshDestination(std::string(250, 'n'));
  for (int round = 0; round < 2; ++round) {
    int errnoValue = 0;
    const auto file = ScratchFile::openFor(destination, errnoValue);
    ASSERT_TRUE(file);
    EXPECT_EQ(file->moveTo(destination), 0);
  }
  EXPECT_EQ(filesBeside(destination), 1u);
}

}  // namespace
}  // namespace vidloom::testing
