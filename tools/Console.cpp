#include "tools/Console.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <mutex>
#include <system_error>

#include "vidloom/platform/foundation/NSLog.h"

namespace vidloom {
namespace {

std::mutex consoleMutex;
std::string statusText;

/// In one piece, so that lines of several threads do not mix.
void put(const std::string& text) { std::fwrite(text.data(), 1, text.size(), stderr); }

constexpr const char* kClearLine = "\r\033[K";

}  // namespace

void Console::takeLog() { NSLogSetSink(&Console::line); }

void Console::muteLog(const std::string& text) {
  NSLogSetSink([text](const std::string& line) {
    if (line.find(text) == std::string::npos) Console::line(line);
  });
}

void Console::line(const std::string& text) {
  const std::lock_guard lock(consoleMutex);
  put(statusText.empty() ? text + "\n" : kClearLine + text + "\n" + statusText);
}

void Console::message(const std::string& text) { line("vidloom: " + text); }

void Console::raw(const std::string& text) {
  const std::lock_guard lock(consoleMutex);
  put(text);
}

void Console::status(const std::string& text) {
  const std::lock_guard lock(consoleMutex);
  if (text.empty()) {
    if (!statusText.empty()) put("\n");
  } else {
    put(kClearLine + text);
  }
  statusText = text;
}

bool Console::isTerminal() { return isatty(STDERR_FILENO) == 1; }

int Console::columns() {
  winsize size{};
  constexpr int kUsual = 80;
  return ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0 ? size.ws_col : kUsual;
}

bool writeToStandardOutput(const std::string& text) {
  if (std::fwrite(text.data(), 1, text.size(), stdout) == text.size() && std::fflush(stdout) == 0) return true;
  Console::message("standard output: " + std::error_code(errno, std::generic_category()).message());
  return false;
}

}  // namespace vidloom
