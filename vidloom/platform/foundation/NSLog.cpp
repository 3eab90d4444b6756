#include "vidloom/platform/foundation/NSLog.h"

#include <syslog.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <memory>
#include <mutex>

namespace vidloom {

namespace {

struct LogRoute {
  std::mutex mutex;
  std::shared_ptr<const NSLogSink> sink;  ///< null: standard error and syslog
};

/// Never destroyed: workers may still log while the process ends.
LogRoute& route() {
  static LogRoute& instance = *std::make_unique<LogRoute>().release();
  return instance;
}

std::string timeStamp() {
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  tm local{};
  localtime_r(&now.tv_sec, &local);
  char date[32];
  std::strftime(date, sizeof date, "%Y-%m-%d %H:%M:%S", &local);
  return NSStringWithFormat("%s.%03ld", date, now.tv_nsec / 1'000'000);
}

void writeToStandardError(const std::string& line) {
  const std::string text = NSStringWithFormat("%s %s[%d:%d] ", timeStamp().c_str(), program_invocation_short_name,
                                              static_cast<int>(getpid()), static_cast<int>(gettid())) +
                           line + "\n";
  size_t written = 0;
  while (written < text.size()) {
    const ssize_t count = write(STDERR_FILENO, text.data() + written, text.size() - written);
    if (count < 0 && errno != EINTR) return;
    if (count > 0) written += static_cast<size_t>(count);
  }
}

}  // namespace

void NSLog(const std::string& line) {
  try {
    std::shared_ptr<const NSLogSink> sink;
    {
      const std::lock_guard lock(route().mutex);
      sink = route().sink;
    }
    if (sink) return (*sink)(line);
    writeToStandardError(line);
    syslog(LOG_USER | LOG_NOTICE, "%s", line.c_str());
  } catch (...) {
    // A line that cannot be written is lost; logging never fails its caller.
  }
}

NSLogSink NSLogSetSink(NSLogSink sink) {
  auto replacement = sink ? std::make_shared<const NSLogSink>(std::move(sink)) : nullptr;
  {
    const std::lock_guard lock(route().mutex);
    route().sink.swap(replacement);
  }
  return replacement ? *replacement : NSLogSink{};
}

void NSLogAndAbort(const std::string& line) {
  writeToStandardError(line);
  std::abort();
}

std::string NSStringWithFormat(const char* format, ...) {
  va_list arguments, again;
  va_start(arguments, format);
  va_copy(again, arguments);
  const int length = std::vsnprintf(nullptr, 0, format, arguments);
  va_end(arguments);
  std::string text(length > 0 ? static_cast<size_t>(length) : 0, '\0');
  if (length > 0) std::vsnprintf(text.data(), text.size() + 1, format, again);
  va_end(again);
  return text;
}

}  // namespace vidloom
