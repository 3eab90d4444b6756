// The files that belong to the library.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace vidloom {

/// A set of folders that are searched for resources, in order.
class NSBundle {
 public:
  /// Those of this library: share/vidloom beside the program or shared library that it is linked into (wherever the installation
  /// was moved to), then the folders that were added, then where it was configured to be installed, then the source tree that it
  /// was built from.
  static const NSBundle& bundleForLibrary();
  /// Adds a folder to those of the library. For programs that keep the resources in a place of their own; a program that is built
  /// against the installed package does it without being asked, since the code that is linked into it cannot know where the package
  /// lies. Takes effect when called before the library has looked for anything. Any thread.
  static void addFolderForLibrary(const std::filesystem::path& folder);
  /// Those of a program or library at that place: share/vidloom under the folder above its own, and one further up.
  static NSBundle bundleForBinary(const std::filesystem::path& binary);
  explicit NSBundle(std::vector<std::filesystem::path> folders) : folders_(std::move(folders)) {}

  /// The path of the file `name.type`, or an empty path where there is none.
  std::filesystem::path pathForResource(const std::string& name, const std::string& type) const;

 private:
  std::vector<std::filesystem::path> folders_;
};

}  // namespace vidloom
