// What the engine does to files by name.
#pragma once

#include <filesystem>
#include <optional>

#include "vidloom/platform/foundation/NSError.h"

namespace vidloom {

class NSFileManager {
 public:
  NSFileManager() = delete;

  /// Removes a file, a link (not what it leads to) or an empty folder. False with *error set otherwise: a file that is not there is
  /// NSFileNoSuchFileError; a folder with something in it is left alone. The error's text names the file, the underlying error is
  /// the system's. `error` may be null.
  [[nodiscard]] static bool removeItemAtURL(const std::filesystem::path& url, std::optional<NSError>* error);
  static bool fileExistsAtPath(const std::filesystem::path& path);
};

}  // namespace vidloom
