// A temporary file beside the file that it is made for.
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <span>
#include <utility>

namespace vidloom {

/// Has no name as long as the file system can do that, so that nothing stays behind however the process ends; elsewhere a hidden
/// name in the same folder that goes with the object. Operations return 0 or an errno value. A write over the process' file-size
/// limit gives EFBIG and raises no signal.
class ScratchFile {
 public:
  /// For private data: has no name in any case.
  static std::unique_ptr<ScratchFile> openUnnamed(const std::filesystem::path& folder, int& errnoValue);
  /// For data that moveTo() puts in place when it is complete.
  static std::unique_ptr<ScratchFile> openFor(const std::filesystem::path& destination, int& errnoValue);
  /// Takes over an open descriptor; a file that has a name loses it with the object.
  explicit ScratchFile(int descriptor, std::filesystem::path name = {}) : descriptor_(descriptor), name_(std::move(name)) {}
  ~ScratchFile();
  ScratchFile(const ScratchFile&) = delete;
  ScratchFile& operator=(const ScratchFile&) = delete;

  /// Writes at the end.
  [[nodiscard]] int append(std::span<const uint8_t> bytes);
  /// Reads exactly that many bytes; EIO where the file ends before.
  [[nodiscard]] int read(uint64_t offset, std::span<uint8_t> bytes) const;
  /// Gives the disk space of a range that is not needed any more back, where the file system can.
  void discard(uint64_t offset, uint64_t byteCount);
  /// Gives the file its name, at once and whole; a file that has the name is replaced.
  [[nodiscard]] int moveTo(const std::filesystem::path& destination);

  uint64_t size() const { return size_; }

 private:
  static std::unique_ptr<ScratchFile> openNamed(const std::filesystem::path& beside, int& errnoValue);
  int linkAs(const std::filesystem::path& name) const;

  int descriptor_ = -1;
  uint64_t size_ = 0;
  std::filesystem::path name_;  ///< empty: has none
};

}  // namespace vidloom
