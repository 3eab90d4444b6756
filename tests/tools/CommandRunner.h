#pragma once

#include <sys/types.h>

#include <filesystem>
#include <string>
#include <vector>

namespace vidloom::testing {

struct CommandResult {
  int exitCode = -1;  ///< -1: killed by a signal
  std::string out;
  std::string err;
};

/// The built command with arguments, run in a folder.
class RunningCommand {
 public:
  /// `fileSizeLimit` in bytes; 0: none.
  RunningCommand(const std::vector<std::string>& arguments, const std::filesystem::path& folder, uint64_t fileSizeLimit = 0);
  ~RunningCommand();
  RunningCommand(const RunningCommand&) = delete;
  RunningCommand& operator=(const RunningCommand&) = delete;

  /// Waits until standard error contains that text; false where the command ended before.
  bool waitForError(const std::string& text);
  /// Waits for the first data on standard output; false where the command ended without.
  bool waitForOutput();
  void signal(int number) const;
  CommandResult wait();

 private:
  bool readMore();

  pid_t process_ = -1;
  int out_ = -1, err_ = -1;
  CommandResult result_;
};

CommandResult runCommand(const std::vector<std::string>& arguments, const std::filesystem::path& folder,
                         uint64_t fileSizeLimit = 0);

/// A folder that goes with the object.
class TemporaryFolder {
 public:
  TemporaryFolder();
  ~TemporaryFolder();
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;

  const std::filesystem::path& path() const { return path_; }
  void write(const std::string& name, const std::string& text) const;
  std::string read(const std::string& name) const;
  /// A hard link or copy of a file, under that name.
  void put(const std::filesystem::path& file, const std::string& name) const;
  /// Everything in it, sorted.
  std::vector<std::string> names() const;

 private:
  std::filesystem::path path_;
};

}  // namespace vidloom::testing
