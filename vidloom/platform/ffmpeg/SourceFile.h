// A regular file that is read at any position.
#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>

#include "vidloom/platform/foundation/NSError.h"

namespace vidloom {

/// An open file. Reads at a position of the caller's, so that several demuxers share one; any thread.
class SourceFile {
 public:
  /// Tells whether a path still leads to the same bytes.
  struct Identity {
    uint64_t device = 0, inode = 0;
    int64_t size = 0, modifiedNs = 0;
    friend bool operator==(const Identity&, const Identity&) = default;
  };

  /// Null with an error that names the file for anything but a readable regular file that is not empty. Never waits for a pipe.
  static std::shared_ptr<const SourceFile> open(const std::filesystem::path& path, std::optional<NSError>* error);
  ~SourceFile();
  SourceFile(const SourceFile&) = delete;
  SourceFile& operator=(const SourceFile&) = delete;

  const Identity& identity() const { return identity_; }
  int64_t size() const { return identity_.size; }
  /// Up to `count` bytes from `offset` on; 0 at the end, -errno on failure.
  int64_t readAt(int64_t offset, void* bytes, size_t count) const;

 private:
  SourceFile(int descriptor, const Identity& identity) : descriptor_(descriptor), identity_(identity) {}

  int descriptor_;
  Identity identity_;
};

}  // namespace vidloom
