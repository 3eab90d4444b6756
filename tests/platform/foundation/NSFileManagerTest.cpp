#include "vidloom/platform/foundation/NSFileManager.h"

#include <gmock/gmock.h>

#include <fstream>

#include "tests/support/Fixtures.h"
#include "vidloom/platform/foundation/NSBundle.h"

namespace vidloom {
namespace {

namespace fs = std::filesystem;
using ::testing::HasSubstr;

fs::path touch(const fs::path& path) {
  fs::create_directories(path.parent_path());
  std::ofstream(path) << "x";
  return path;
}

TEST(Files, AreRemovedAndSoAreLinksAndEmptyFoldersButNothingElse) {
  const fs::path folder = testing::scratchFolder() / "full", file = touch(folder / "kept.mp4"), link = folder / "link";
  fs::create_symlink(file, link);
  EXPECT_TRUE(NSFileManager::removeItemAtURL(link, nullptr));
  EXPECT_TRUE(NSFileManager::fileExistsAtPath(file));
  std::optional<NSError> error;
  EXPECT_FALSE(NSFileManager::removeItemAtURL(folder, &error));
  EXPECT_TRUE(NSFileManager::fileExistsAtPath(file));
  EXPECT_EQ(error.value_or(NSError{}).code(), NSFileWriteUnknownError);
  for (const fs::path& path : {file, folder}) {
    EXPECT_TRUE(NSFileManager::removeItemAtURL(path, nullptr));
    EXPECT_FALSE(NSFileManager::fileExistsAtPath(path));
  }
}

TEST(Files, ThatAreMissingCannotBeRemoved) {
  const fs::path folder = testing::scratchFolder();
  for (const fs::path& path :
       {folder / "missing.mp4", folder / "no folder" / "missing.mp4", touch(folder / "file") / "missing.mp4", fs::path()}) {
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

TEST(Files, OfABundleAreFoundBesideItsBinary) {
  const fs::path folder = testing::scratchFolder(), clip = touch(folder / "prefix/share/vidloom/clip.mp4");
  for (const auto* binary : {"prefix/bin/program", "prefix/lib/libvidloom.so", "prefix/lib/x86_64-linux-gnu/libvidloom.so"}) {
    const NSBundle bundle = NSBundle::bundleForBinary(folder / binary);
    EXPECT_EQ(bundle.pathForResource("clip", "mp4"), clip) << binary;
    EXPECT_EQ(bundle.pathForResource("clip", "mov"), fs::path()) << binary;
  }
  EXPECT_EQ(NSBundle::bundleForBinary(folder / "elsewhere/bin/program").pathForResource("clip", "mp4"), fs::path());
}

}  // namespace
}  // namespace vidloom
