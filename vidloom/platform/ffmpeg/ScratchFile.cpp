#include "vidloom/platform/ffmpeg/ScratchFile.h"

#include <fcntl.h>
#include <pthread.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <ctime>
#include <string>

#include "vidloom/platform/foundation/NSLog.h"

namespace vidloom {

namespace fs = std::filesystem;

namespace {

/// Holds back the signal of the file-size limit on this thread, and takes it away if it came meanwhile.
class SizeLimitSignalGuard {
 public:
  SizeLimitSignalGuard() {
    sigemptyset(&signals_);
    sigaddset(&signals_, SIGXFSZ);
    pthread_sigmask(SIG_BLOCK, &signals_, &before_);
  }
  ~SizeLimitSignalGuard() {
    if (sigismember(&before_, SIGXFSZ) == 1) return;
    const timespec noWait{};
    if (limitReached) sigtimedwait(&signals_, nullptr, &noWait);
    pthread_sigmask(SIG_SETMASK, &before_, nullptr);
  }
  SizeLimitSignalGuard(const SizeLimitSignalGuard&) = delete;
  SizeLimitSignalGuard& operator=(const SizeLimitSignalGuard&) = delete;
  bool limitReached = false;

 private:
  sigset_t signals_{};
  sigset_t before_{};
};

fs::path folderOf(const fs::path& file) { return file.has_parent_path() ? file.parent_path() : fs::path("."); }

std::string descriptorPath(int descriptor) { return "/proc/self/fd/" + std::to_string(descriptor); }

fs::path hiddenName(const fs::path& beside) {
  static std::atomic<uint32_t> counter{0};
  // A name may have 255 bytes; the tail of a long one is enough to recognise it.
  constexpr size_t maximumStemBytes = 200;
  std::string stem = beside.filename().string();
  if (stem.size() > maximumStemBytes) stem.erase(0, stem.size() - maximumStemBytes);
  return folderOf(beside) / NSStringWithFormat(".%s.%d-%u.part", stem.c_str(), static_cast<int>(getpid()), ++counter);
}

/// Opens a file without a name, or -1. One that could not be given a name later counts as none where it `needsName`.
int openWithoutName(const fs::path& folder, bool needsName) {
  const int descriptor = open(folder.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0666);
  if (descriptor < 0 || !needsName || access(descriptorPath(descriptor).c_str(), F_OK) == 0) return descriptor;
  close(descriptor);
  errno = EOPNOTSUPP;
  return -1;
}

bool cannotHaveUnnamedFiles(int errnoValue) {
  return errnoValue == EOPNOTSUPP || errnoValue == EISDIR || errnoValue == EINVAL || errnoValue == ENOSYS;
}

}  // namespace

std::unique_ptr<ScratchFile> ScratchFile::openNamed(const fs::path& beside, int& errnoValue) {
  constexpr int maximumAttempts = 100;
  for (int attempt = 0; attempt < maximumAttempts; ++attempt) {
    const fs::path name = hiddenName(beside);
    const int descriptor = open(name.c_str(), O_CREAT | O_EXCL | O_RDWR | O_CLOEXEC, 0666);
    if (descriptor >= 0) return std::make_unique<ScratchFile>(descriptor, name);
    errnoValue = errno;
    if (errnoValue != EEXIST) return nullptr;
  }
  return nullptr;
}

std::unique_ptr<ScratchFile> ScratchFile::openFor(const fs::path& destination, int& errnoValue) {
  const int descriptor = openWithoutName(folderOf(destination), true);
  if (descriptor >= 0) return std::make_unique<ScratchFile>(descriptor);
  errnoValue = errno;
  return cannotHaveUnnamedFiles(errnoValue) ? openNamed(destination, errnoValue) : nullptr;
}

std::unique_ptr<ScratchFile> ScratchFile::openUnnamed(const fs::path& folder, int& errnoValue) {
  const int descriptor = openWithoutName(folder.empty() ? fs::path(".") : folder, false);
  if (descriptor >= 0) return std::make_unique<ScratchFile>(descriptor);
  errnoValue = errno;
  if (!cannotHaveUnnamedFiles(errnoValue)) return nullptr;
  std::unique_ptr<ScratchFile> file = openNamed(folder / "spool", errnoValue);
  if (file && unlink(file->name_.c_str()) == 0) file->name_.clear();
  return file;
}

ScratchFile::~ScratchFile() {
  if (!name_.empty()) unlink(name_.c_str());
  close(descriptor_);
}

int ScratchFile::append(std::span<const uint8_t> bytes) {
  SizeLimitSignalGuard guard;
  while (!bytes.empty()) {
    const ssize_t written = pwrite(descriptor_, bytes.data(), bytes.size(), static_cast<off_t>(size_));
    if (written < 0 && errno == EINTR) continue;
    if (written < 0) {
      guard.limitReached = errno == EFBIG;
      return errno;
    }
    if (written == 0) return ENOSPC;
    size_ += static_cast<uint64_t>(written);
    bytes = bytes.subspan(static_cast<size_t>(written));
  }
  return 0;
}

int ScratchFile::read(uint64_t offset, std::span<uint8_t> bytes) const {
  while (!bytes.empty()) {
    const ssize_t count = pread(descriptor_, bytes.data(), bytes.size(), static_cast<off_t>(offset));
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return errno;
    if (count == 0) return EIO;
    offset += static_cast<uint64_t>(count);
    bytes = bytes.subspan(static_cast<size_t>(count));
  }
  return 0;
}

void ScratchFile::discard(uint64_t offset, uint64_t byteCount) {
  fallocate(descriptor_, FALLOC_FL_PUNCH_HOLE | FALLOC_FL_KEEP_SIZE, static_cast<off_t>(offset), static_cast<off_t>(byteCount));
}

int ScratchFile::linkAs(const fs::path& name) const {
  return linkat(AT_FDCWD, descriptorPath(descriptor_).c_str(), AT_FDCWD, name.c_str(), AT_SYMLINK_FOLLOW) == 0 ? 0 : errno;
}

int ScratchFile::moveTo(const fs::path& destination) {
  if (name_.empty()) {
    const int errnoValue = linkAs(destination);
    if (errnoValue != EEXIST) return errnoValue;
    const fs::path name = hiddenName(destination);
    if (const int linkError = linkAs(name)) return linkError;
    name_ = name;
  }
  if (rename(name_.c_str(), destination.c_str()) != 0) return errno;
  name_.clear();
  return 0;
}

}  // namespace vidloom
