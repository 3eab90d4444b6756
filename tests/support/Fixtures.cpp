#include "tests/support/Fixtures.h"

#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <stdexcept>

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

std::string quoted(const std::string& word) {
  std::string result = "'";
  for (const char c : word) result += c == '\'' ? std::string("'\\''") : std::string(1, c);
  return result + "' ";
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

int runProgram(const std::vector<std::string>& command, std::string* output) {
  std::string line;
  for (const std::string& word : command) line += quoted(word);
  line += std::getenv("VIDLOOM_TEST_VERBOSE") ? "</dev/null" : "</dev/null 2>/dev/null";
  FILE* pipe = popen(line.c_str(), "re");
  if (!pipe) throw std::runtime_error("cannot run " + line);
  char block[65536];
  for (size_t count; (count = fread(block, 1, sizeof block, pipe)) > 0;) {
    if (output) output->append(block, count);
  }
  const int status = pclose(pipe);
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

std::filesystem::path writeWav(const std::string& name, int sampleRate, int channels, const std::vector<int16_t>& samples) {
  std::string bytes;
  const auto number = [&](uint64_t value, int byteCount) {
    for (int i = 0; i < byteCount; ++i) bytes.push_back(static_cast<char>(value >> (8 * i) & 0xff));
  };
  const uint64_t dataBytes = 2 * samples.size();
  bytes += "RIFF";
  number(36 + dataBytes, 4);
  bytes += "WAVEfmt ";
  number(16, 4);
  number(1, 2);
  number(static_cast<uint64_t>(channels), 2);
  number(static_cast<uint64_t>(sampleRate), 4);
  number(static_cast<uint64_t>(sampleRate * channels * 2), 4);
  number(static_cast<uint64_t>(channels * 2), 2);
  number(16, 2);
  bytes += "data";
  number(dataBytes, 4);
  for (const int16_t sample : samples) number(static_cast<uint16_t>(sample), 2);
  return writeFile(name, bytes);
}

}  // namespace vidloom::testing
