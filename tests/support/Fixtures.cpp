#include "tests/support/Fixtures.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <thread>

extern char** environ;

namespace vidloom::testing {

namespace {

namespace fs = std::filesystem;

struct ScratchFolder {
  ScratchFolder() {
    std::string pattern = (fs::temp_directory_path() / "vidloom-test-XXXXXX").string();
    if (!mkdtemp(pattern.data())) throw std::runtime_error("no scratch folder at " + pattern);
    path = pattern;
  }
  ~ScratchFolder() {
    std::error_code ignored;
    fs::remove_all(path, ignored);
  }
  fs::path path;
};

struct Pipe {
  int ends[2] = {-1, -1};
  explicit Pipe(bool wanted) {
    if (wanted && pipe2(ends, O_CLOEXEC) != 0) throw std::runtime_error("no pipe");
  }
  ~Pipe() {
    closeEnd(0);
    closeEnd(1);
  }
  void closeEnd(int end) {
    if (ends[end] >= 0) close(ends[end]);
    ends[end] = -1;
  }
};

void feedAll(int descriptor, const InputFeed& input) {
  std::string bytes;
  while (true) {
    bytes.clear();
    const bool more = input(bytes);
    for (size_t done = 0; done < bytes.size();) {
      const ssize_t count = write(descriptor, bytes.data() + done, bytes.size() - done);
      if (count <= 0) return;
      done += static_cast<size_t>(count);
    }
    if (!more) return;
  }
}

void drain(int descriptor, std::string* output) {
  char block[65536];
  for (ssize_t count; (count = read(descriptor, block, sizeof block)) > 0;) {
    if (output) output->append(block, static_cast<size_t>(count));
  }
}

pid_t spawnProgram(const std::vector<std::string>& command, Pipe& in, Pipe& out) {
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  if (in.ends[0] >= 0) posix_spawn_file_actions_adddup2(&actions, in.ends[0], 0);
  if (in.ends[0] < 0) posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
  posix_spawn_file_actions_adddup2(&actions, out.ends[1], 1);
  if (!std::getenv("VIDLOOM_TEST_VERBOSE")) posix_spawn_file_actions_addopen(&actions, 2, "/dev/null", O_WRONLY, 0);
  std::vector<char*> arguments;
  for (const std::string& part : command) arguments.push_back(const_cast<char*>(part.c_str()));
  arguments.push_back(nullptr);
  pid_t pid = -1;
  const int failure = posix_spawnp(&pid, arguments[0], &actions, nullptr, arguments.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  if (failure != 0) throw std::runtime_error("cannot run " + command[0]);
  return pid;
}

}  // namespace

const fs::path& scratchFolder() {
  static const ScratchFolder folder;
  return folder.path;
}

fs::path freshDestination(const std::string& name) {
  static int count = 0;
  const fs::path folder = scratchFolder() / ("out" + std::to_string(count++));
  fs::create_directories(folder);
  return folder / name;
}

size_t filesBeside(const fs::path& destination) {
  const fs::directory_iterator files(destination.parent_path());
  return static_cast<size_t>(std::distance(begin(files), end(files)));
}

FileSizeLimit::FileSizeLimit(rlim_t byteCount) {
  getrlimit(RLIMIT_FSIZE, &before_);
  const rlimit lowered{byteCount, before_.rlim_max};
  setrlimit(RLIMIT_FSIZE, &lowered);
}

int runProgram(const std::vector<std::string>& command, std::string* output, const InputFeed& input) {
  std::signal(SIGPIPE, SIG_IGN);
  Pipe in(static_cast<bool>(input)), out(true);
  const pid_t pid = spawnProgram(command, in, out);
  out.closeEnd(1);
  in.closeEnd(0);
  std::thread feeder;
  if (input) {
    feeder = std::thread([&] {
      feedAll(in.ends[1], input);
      in.closeEnd(1);
    });
  }
  drain(out.ends[0], output);
  if (feeder.joinable()) feeder.join();
  int status = 0;
  waitpid(pid, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

std::string readFile(const fs::path& file) {
  std::ifstream stream(file, std::ios::binary);
  std::ostringstream bytes;
  bytes << stream.rdbuf();
  return bytes.str();
}

fs::path writeFile(const std::string& name, const std::string& bytes) {
  const fs::path path = scratchFolder() / name;
  std::ofstream(path, std::ios::binary) << bytes;
  return path;
}

}  // namespace vidloom::testing
