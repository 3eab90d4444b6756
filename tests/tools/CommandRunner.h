#pragma once

#include <gtest/gtest.h>
#include <sys/types.h>

#include <filesystem>
#include <string>
#include <vector>

#include "tests/support/Fixtures.h"

namespace vidloom::testing {

struct CommandResult {
  int exitCode = -1;  ///< -1: killed by a signal
  std::string out;
  std::string err;
};

/// The built command with arguments (parted by spaces), run in a folder.
class RunningCommand {
 public:
  /// `fileSizeLimit` in bytes; 0: none.
  RunningCommand(const std::string& arguments, const std::filesystem::path& folder, uint64_t fileSizeLimit = 0);
  ~RunningCommand();
  RunningCommand(const RunningCommand&) = delete;
  RunningCommand& operator=(const RunningCommand&) = delete;

  /// Waits until its outputs contain that text; false where the command ended before.
  bool waitFor(const std::string& text);
  void signal(int number) const;
  CommandResult wait();

 private:
  bool readMore();

  pid_t process_ = -1;
  int out_ = -1, err_ = -1;
  CommandResult result_;
};

/// Commands in a folder of their own.
class CommandTest : public ::testing::Test {
 protected:
  /// Arguments that the command does not take, its exit code, and what it says.
  struct Refusal {
    std::string arguments;
    int exitCode;
    std::vector<std::string> words;
  };
  CommandResult run(const std::string& arguments, uint64_t fileSizeLimit = 0) const {
    return RunningCommand(arguments, folder_, fileSizeLimit).wait();
  }
  /// Nothing is left behind and nothing goes to standard output.
  void expectRefusals(const std::vector<Refusal>& refusals) const;

  std::filesystem::path at(const std::string& name) const { return folder_ / name; }
  std::string read(const std::string& name) const { return readFile(at(name)); }
  void write(const std::string& name, const std::string& text) const;
  /// A project at 30 fps with one instruction that has these tracks.
  void writeProject(const std::string& name, const std::string& tracks, const std::string& size = "320,180") const;
  /// Everything in the folder, sorted.
  std::vector<std::string> names() const;

  const std::filesystem::path folder_ = freshDestination().parent_path();
};

}  // namespace vidloom::testing
