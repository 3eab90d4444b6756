#include "vidloom/platform/foundation/NSFileManager.h"

#include <cerrno>
#include <cstdio>

namespace vidloom {

namespace {

int64_t cocoaCode(int systemError) {
  switch (systemError) {
    case ENOENT:
    case ENOTDIR:
      return NSFileNoSuchFileError;
    case EACCES:
    case EPERM:
      return NSFileWriteNoPermissionError;
    case EROFS:
      return NSFileWriteVolumeReadOnlyError;
    default:
      return NSFileWriteUnknownError;
  }
}

NSError removalError(const std::filesystem::path& url, int systemError) {
  const NSError underlying = NSError::errorWithPOSIXCode(systemError);
  return {NSCocoaErrorDomain,
          cocoaCode(systemError),
          {{NSLocalizedDescriptionKey,
            "\u201c" + url.filename().string() + "\u201d couldn\u2019t be removed: " + underlying.localizedDescription()},
           {NSFilePathErrorKey, url.string()},
           {NSUnderlyingErrorKey, underlying}}};
}

}  // namespace

bool NSFileManager::removeItemAtURL(const std::filesystem::path& url, std::optional<NSError>* error) {
  if (std::remove(url.c_str()) == 0) return true;
  const int systemError = errno;
  if (error != nullptr) *error = removalError(url, systemError);
  return false;
}

bool NSFileManager::fileExistsAtPath(const std::filesystem::path& path) {
  std::error_code ignored;
  return std::filesystem::exists(path, ignored);
}

}  // namespace vidloom
