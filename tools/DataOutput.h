#pragma once

#include <atomic>
#include <filesystem>
#include <memory>
#include <string>
#include <string_view>

#include "tools/ExitCode.h"
#include "vidloom/platform/ffmpeg/ScratchFile.h"

namespace vidloom {

/// Data of any length on its way to a file, which has it whole or stays as it was, or to standard output. A signal that came while
/// a file is being written counts as a failure. One thread at a time writes.
class DataOutput {
 public:
  /// An empty path is standard output.
  explicit DataOutput(const std::filesystem::path& path);

  /// Nothing more is written after a failure.
  void write(std::string_view data);
  void write(float number);
  void write(double number);
  void write(int64_t number);
  /// Any thread.
  bool hasFailed() const { return failure_ != 0; }
  /// Writes what is left and puts the file in its place. Says what went wrong on standard error.
  ExitCode finish();

 private:
  void flush();
  int writeOut();

  std::filesystem::path path_;
  std::unique_ptr<ScratchFile> file_;
  std::string waiting_;
  std::atomic<int> failure_{0};  ///< an errno value
};

/// Writes all of it.
ExitCode writeData(const std::filesystem::path& path, std::string_view data);

/// Why a file made from that media file may not be written there; empty where it may, and for an empty path.
std::string problemWithDerivedFile(const std::filesystem::path& output, const std::filesystem::path& media);

}  // namespace vidloom
