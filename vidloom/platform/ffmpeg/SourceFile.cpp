#include "vidloom/platform/ffmpeg/SourceFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "vidloom/platform/avfoundation/AVError.h"

namespace vidloom {

namespace {

std::string quoted(const std::filesystem::path& path) { return '"' + path.string() + '"'; }

void setError(std::optional<NSError>* error, const std::filesystem::path& path, const std::string& problem, int errnoValue) {
  if (!error) return;
  std::optional<NSError> cause;
  if (errnoValue != 0) cause = AVMakePOSIXError(errnoValue);
  const std::string reason = cause ? problem + ": " + cause->localizedDescription() : problem;
  *error = AVMakeError(errnoValue != 0 ? AVErrorFailedToLoadMediaData : AVErrorFileFormatNotRecognized, quoted(path) + " " + reason,
                       path, cause);
}

const char* kindName(mode_t mode) {
  if (S_ISDIR(mode)) return "is a folder, not a media file";
  if (S_ISSOCK(mode)) return "is a socket, not a media file";
  if (S_ISFIFO(mode)) return "is a pipe, not a media file";
  return "is a device, not a media file";
}

}  // namespace

std::shared_ptr<const SourceFile> SourceFile::open(const std::filesystem::path& path, std::optional<NSError>* error) {
  const int descriptor = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
  if (descriptor < 0) {
    const int reason = errno;
    struct stat there {};
    if (reason == ENXIO && ::stat(path.c_str(), &there) == 0 && !S_ISREG(there.st_mode)) {
      setError(error, path, kindName(there.st_mode), 0);
    } else {
      setError(error, path, "cannot be opened", reason);
    }
    return nullptr;
  }
  struct stat status {};
  if (fstat(descriptor, &status) != 0 || !S_ISREG(status.st_mode) || status.st_size <= 0) {
    setError(error, path, !S_ISREG(status.st_mode) ? kindName(status.st_mode) : "is empty", 0);
    close(descriptor);
    return nullptr;
  }
  const Identity identity{status.st_dev, status.st_ino, status.st_size,
                          int64_t{status.st_mtim.tv_sec} * 1'000'000'000 + status.st_mtim.tv_nsec};
  return std::shared_ptr<const SourceFile>(new SourceFile(descriptor, identity));
}

SourceFile::~SourceFile() { close(descriptor_); }

int64_t SourceFile::readAt(int64_t offset, void* bytes, size_t count) const {
  while (true) {
    const ssize_t got = pread(descriptor_, bytes, count, offset);
    if (got >= 0) return got;
    if (errno != EINTR) return -errno;
  }
}

}  // namespace vidloom
