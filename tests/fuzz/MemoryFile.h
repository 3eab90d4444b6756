// Bytes that can be opened as a file.
#pragma once

#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <filesystem>
#include <string>

#include "vidloom/platform/ffmpeg/MediaFile.h"
#include "vidloom/platform/foundation/NSLog.h"

namespace vidloom {

class MemoryFile {
 public:
  MemoryFile(const uint8_t* bytes, size_t size) : descriptor_(memfd_create("fuzz", MFD_CLOEXEC)) {
    for (size_t done = 0; done < size;) {
      const ssize_t count = write(descriptor_, bytes + done, size - done);
      if (count <= 0) break;
      done += static_cast<size_t>(count);
    }
  }
  ~MemoryFile() { close(descriptor_); }
  MemoryFile(const MemoryFile&) = delete;
  MemoryFile& operator=(const MemoryFile&) = delete;
  std::filesystem::path path() const { return "/proc/self/fd/" + std::to_string(descriptor_); }

 private:
  int descriptor_;
};

/// Keeps the log quiet, and pictures and tables small.
inline MediaLimits fuzzingLimits() {
  NSLogSetSink([](const std::string&) {});
  return {.maxPixels = 1 << 20, .maxSamplesPerTrack = 10000};
}

}  // namespace vidloom
