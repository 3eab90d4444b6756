#include "tests/tools/CommandRunner.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace vidloom::testing {

namespace fs = std::filesystem;

namespace {

/// In the child: becomes the command.
[[noreturn]] void become(std::vector<char*>& words, const fs::path& folder, uint64_t fileSizeLimit, int out, int err) {
  if (fileSizeLimit > 0) {
    const rlimit limit{fileSizeLimit, fileSizeLimit};
    setrlimit(RLIMIT_FSIZE, &limit);
  }
  const int none = open("/dev/null", O_RDONLY);
  dup2(none, STDIN_FILENO);
  dup2(out, STDOUT_FILENO);
  dup2(err, STDERR_FILENO);
  if (chdir(folder.c_str()) == 0) execv(words[0], words.data());
  _exit(127);
}

/// Appends what can be read at once; false at the end.
bool take(int& descriptor, std::string& text) {
  std::array<char, 4096> bytes{};
  const ssize_t count = read(descriptor, bytes.data(), bytes.size());
  if (count > 0) {
    text.append(bytes.data(), static_cast<size_t>(count));
    return true;
  }
  close(descriptor);
  descriptor = -1;
  return false;
}

}  // namespace

RunningCommand::RunningCommand(const std::string& arguments, const fs::path& folder, uint64_t fileSizeLimit) {
  std::vector<std::string> owned{VIDLOOM_COMMAND};
  std::istringstream stream(arguments);
  for (std::string word; stream >> word;) owned.push_back(word);
  std::vector<char*> words;
  for (std::string& word : owned) words.push_back(word.data());
  words.push_back(nullptr);
  int out[2], err[2];
  if (pipe2(out, O_CLOEXEC) != 0 || pipe2(err, O_CLOEXEC) != 0) throw std::runtime_error("no pipes");
  process_ = fork();
  if (process_ == 0) become(words, folder, fileSizeLimit, out[1], err[1]);
  close(out[1]);
  close(err[1]);
  out_ = out[0];
  err_ = err[0];
}

RunningCommand::~RunningCommand() {
  if (process_ > 0) {
    kill(process_, SIGKILL);
    waitpid(process_, nullptr, 0);
  }
  if (out_ >= 0) close(out_);
  if (err_ >= 0) close(err_);
}

bool RunningCommand::readMore() {
  std::array<pollfd, 2> watched{pollfd{out_, POLLIN, 0}, pollfd{err_, POLLIN, 0}};  // a negative descriptor is passed over
  if ((out_ < 0 && err_ < 0) || poll(watched.data(), watched.size(), -1) < 0) return false;
  if (watched[0].revents != 0) take(out_, result_.out);
  if (watched[1].revents != 0) take(err_, result_.err);
  return true;
}

bool RunningCommand::waitFor(const std::string& text) {
  while (result_.out.find(text) == std::string::npos && result_.err.find(text) == std::string::npos) {
    if (!readMore()) return false;
  }
  return true;
}

void RunningCommand::signal(int number) const { kill(process_, number); }

CommandResult RunningCommand::wait() {
  while (readMore()) {
  }
  int status = 0;
  waitpid(process_, &status, 0);
  process_ = -1;
  result_.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  return result_;
}

void CommandTest::expectRefusals(const std::vector<Refusal>& refusals) const {
  const auto before = names();
  for (const auto& [arguments, exitCode, words] : refusals) {
    SCOPED_TRACE(arguments);
    const CommandResult result = run(arguments);
    EXPECT_EQ(result.exitCode, exitCode) << result.err;
    for (const std::string& word : words) EXPECT_NE(result.err.find(word), std::string::npos) << word << " in " << result.err;
    EXPECT_EQ(result.out, "");
  }
  EXPECT_EQ(names(), before);
}

void CommandTest::write(const std::string& name, const std::string& text) const { std::ofstream(at(name)) << text; }

void CommandTest::writeProject(const std::string& name, const std::string& tracks, const std::string& size) const {
  write(name, R"({"vidloom":1,"renderSize":[)" + size + R"(],"fps":30,"instructions":[{"id":1,"tracks":[)" + tracks + "]}]}");
}

std::vector<std::string> CommandTest::names() const {
  std::vector<std::string> names;
  for (const auto& entry : fs::directory_iterator(folder_)) names.push_back(entry.path().filename().string());
  std::sort(names.begin(), names.end());
  return names;
}

}  // namespace vidloom::testing
