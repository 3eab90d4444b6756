#include "vidloom/platform/foundation/NSBundle.h"

#include <dlfcn.h>

#include <memory>
#include <mutex>

namespace vidloom {

namespace {

/// The file that this code was linked into; empty where the system cannot tell.
std::filesystem::path ownBinary() {
  std::error_code ignored;
  Dl_info info{};
  // The main program is reported under the name that it was started by, which need not lead to it.
  if (dladdr(reinterpret_cast<const void*>(&ownBinary), &info) != 0 && info.dli_fname != nullptr && info.dli_fname[0] == '/') {
    return std::filesystem::weakly_canonical(info.dli_fname, ignored);
  }
  return std::filesystem::read_symlink("/proc/self/exe", ignored);
}

std::vector<std::filesystem::path> foldersBeside(const std::filesystem::path& binary) {
  const std::filesystem::path above = binary.parent_path().parent_path();
  return {above / "share/vidloom", above.parent_path() / "share/vidloom"};
}

/// Filled before main() begins, by files in any order; never taken down.
struct AddedFolders {
  static AddedFolders& shared() {
    static AddedFolders& instance = *std::make_unique<AddedFolders>().release();
    return instance;
  }
  std::mutex mutex;
  std::vector<std::filesystem::path> folders;
};

NSBundle makeLibraryBundle() {
  auto folders = foldersBeside(ownBinary());
  {
    AddedFolders& added = AddedFolders::shared();
    const std::lock_guard lock(added.mutex);
    folders.insert(folders.end(), added.folders.begin(), added.folders.end());
  }
  folders.emplace_back(VIDLOOM_INSTALLED_RESOURCES);
  folders.emplace_back(VIDLOOM_SOURCE_RESOURCES);
  return NSBundle(std::move(folders));
}

}  // namespace

NSBundle NSBundle::bundleForBinary(const std::filesystem::path& binary) { return NSBundle(foldersBeside(binary)); }

const NSBundle& NSBundle::bundleForLibrary() {
  static const NSBundle& instance = *std::make_unique<NSBundle>(makeLibraryBundle()).release();
  return instance;
}

void NSBundle::addFolderForLibrary(const std::filesystem::path& folder) {
  AddedFolders& added = AddedFolders::shared();
  const std::lock_guard lock(added.mutex);
  added.folders.push_back(folder);
}

std::filesystem::path NSBundle::pathForResource(const std::string& name, const std::string& type) const {
  for (const auto& folder : folders_) {
    std::error_code ignored;
    auto path = folder / (name + "." + type);
    if (std::filesystem::is_regular_file(path, ignored)) return path;
  }
  return {};
}

}  // namespace vidloom
