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
  /// was moved to), then where it was configured to be installed, then the source tree that it was built from.
  static const NSBundle& bundleForLibrary();
  /// Those of a program or library at that place: share/vidloom under the folder above its own, and one further up.
  static NSBundle bundleForBinary(const std::filesystem::path& binary);
  explicit NSBundle(std::vector<std::filesystem::path> folders) : folders_(std::move(folders)) {}

  /// The path of the file `name.type`, or an empty path where there is none.
  std::filesystem::path pathForResource(const std::string& name, const std::string& type) const;

 private:
  std::vector<std::filesystem::path> folders_;
};

}  // namespace vidloom
