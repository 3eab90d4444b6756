// Where the packets of a track wait until the file is written.
#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <span>
#include <vector>

#include "vidloom/platform/ffmpeg/ScratchFile.h"

namespace vidloom {

/// A growing run of bytes: the end of it in bounded memory, what does not fit in an unnamed file of the folder that is made when it
/// is first needed. One thread at a time. Operations return 0 or an errno value.
class PacketSpool {
 public:
  static constexpr size_t defaultMemoryBytes = size_t{4} << 20;
  explicit PacketSpool(std::filesystem::path folder, size_t memoryBytes = defaultMemoryBytes)
      : folder_(std::move(folder)), memoryBytes_(memoryBytes) {}

  [[nodiscard]] int append(std::span<const uint8_t> bytes);
  /// Copies a range that was appended.
  [[nodiscard]] int read(uint64_t offset, std::span<uint8_t> bytes) const;
  /// Gives the disk space of everything before `offset` back; it cannot be read any more.
  void discardBefore(uint64_t offset);
  uint64_t size() const { return fileBytes() + memory_.size(); }

 private:
  uint64_t fileBytes() const { return file_ ? file_->size() : 0; }
  int spill();

  std::filesystem::path folder_;
  size_t memoryBytes_;
  std::vector<uint8_t> memory_;
  std::unique_ptr<ScratchFile> file_;
  uint64_t discarded_ = 0;
};

}  // namespace vidloom
