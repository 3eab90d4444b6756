#include "vidloom/platform/foundation/NSFileManager.h"

#include <gmock/gmock.h>

#include <unistd.h>

#include <fstream>

#include "vidloom/platform/foundation/NSBundle.h"

namespace vidloom {
namespace {

namespace fs = std::filesystem;
using ::testing::HasSubstr;

class Files : public ::testing::Test {
 protected:
  Files() : folder_(fs::path(::testing::TempDir()) / ("vidloom_files_" + std::to_string(getpid()))) {
    fs::create_directories(folder_);
  }
  ~Files() override { fs::remove_all(folder_); }

  fs::path touch(const fs::path& name) {
    const fs::path path = folder_ / name;
    fs::create_directories(path.parent_path());
    std::ofstream(path) << "x";
    return path;
  }

  const fs::path folder_;
};

TEST_F(Files, AreRemovedAndSoAreLinksAndEmptyFoldersButNothingElse) {
  std::optional<NSError> error;
  const fs::path file = touch("full/kept.mp4");
  const fs::path link = folder_ / "link";
  fs::create_symlink(file, link);
  EXPECT_TRUE(NSFileManager::removeItemAtURL(link, &error));
  EXPECT_TRUE(NSFileManager::fileExistsAtPath(file));
  EXPECT_FALSE(NSFileManager::removeItemAtURL(folder_ / "full", &error));
  EXPECT_TRUE(NSFileManager::fileExistsAtPath(file));
  ASSERT_TRUE(error);
  EXPECT_EQ(error->code(), NSFileWriteUnknownError);
  for (const fs::path& path : {file, folder_ / "full"}) {
    EXPECT_TRUE(NSFileManager::removeItemAtURL(path, nullptr));
    EXPECT_FALSE(NSFileManager::fileExistsAtPath(path));
  }
}

TEST_F(Files, ThatAreMissingCannotBeRemoved) {
  for (const fs::path& path :
       {folder_ / "missing.mp4", folder_ / "no folder" / "missing.mp4", touch("file") / "missing.mp4", fs::path()}) {
    std::optional<NSError> error;
    EXPECT_FALSE(NSFileManager::removeItemAtURL(path, &error));
    ASSERT_TRUE(error) << path;
    EXPECT_EQ(error->domain(), NSCocoaErrorDomain) << path;
    EXPECT_EQ(error->code(), NSFileNoSuchFileError) << path;
    EXPECT_THAT(error->localizedDescription(), HasSubstr(path.filename().string()));
    ASSERT_TRUE(error->underlyingError()) << path;
    EXPECT_EQ(error->underlyingError()->domain(), NSPOSIXErrorDomain);
  }
}

TEST_F(Files, OfABundleAreFoundBesideItsBinary) {
  const fs::path clip = touch("prefix/share/vidloom/clip.mp4");
  for (const auto* binary : {"prefix/bin/program", "prefix/lib/libvidloom.so", "prefix/lib/x86_64-linux-gnu/libvidloom.so"}) {
    const NSBundle bundle = NSBundle::bundleForBinary(folder_ / binary);
    EXPECT_EQ(bundle.pathForResource("clip", "mp4"), clip) << binary;
    EXPECT_EQ(bundle.pathForResource("clip", "mov"), fs::path()) << binary;
  }
  EXPECT_EQ(NSBundle::bundleForBinary(folder_ / "elsewhere/bin/program").pathForResource("clip", "mp4"), fs::path());
}

}  // namespace
}  // namespace vidloom
