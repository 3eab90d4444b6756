#include "vidloom/platform/ffmpeg/AvLog.h"

#include <array>
#include <map>
#include <mutex>
#include <utility>

#include "vidloom/platform/foundation/NSLog.h"

extern "C" {
#include <libavutil/error.h>
#include <libavutil/log.h>
}

namespace vidloom {

namespace {

constexpr size_t maximumLineBytes = 1024;

class Names {
 public:
  void set(const void* context, const std::string& name) {
    const std::lock_guard lock(mutex_);
    names_[context] = name;
  }
  void remove(const void* context) {
    const std::lock_guard lock(mutex_);
    names_.erase(context);
  }
  std::string of(const void* context) {
    const std::lock_guard lock(mutex_);
    const auto found = names_.find(context);
    return found == names_.end() ? std::string() : found->second + ": ";
  }
  bool isRepeated(const std::string& line) {
    const std::lock_guard lock(mutex_);
    return std::exchange(lastLine_, line) == line;
  }

 private:
  std::mutex mutex_;
  std::map<const void*, std::string> names_;
  std::string lastLine_;
};

/// Lives as long as the process: libav may log from its threads at any time.
Names& names() {
  static Names& theOne = *std::make_unique<Names>().release();
  return theOne;
}

void receive(void* context, int level, const char* format, va_list arguments) {
  if (level > AV_LOG_WARNING) return;
  thread_local std::string line;
  thread_local int printPrefix = 1;
  std::array<char, maximumLineBytes> text{};
  av_log_format_line2(context, level, format, arguments, text.data(), static_cast<int>(text.size()), &printPrefix);
  line += text.data();
  if (line.empty() || (line.back() != '\n' && line.size() < maximumLineBytes)) return;
  while (!line.empty() && (line.back() == '\n' || line.back() == '\r')) line.pop_back();
  const std::string whole = names().of(context) + std::exchange(line, {});
  if (!names().isRepeated(whole)) NSLog(whole);
}

}  // namespace

void AvLog::install() {
  static std::once_flag once;
  std::call_once(once, [] {
    names();
    av_log_set_level(AV_LOG_WARNING);
    av_log_set_callback(receive);
  });
}

std::string AvLog::words(int avError) {
  std::array<char, AV_ERROR_MAX_STRING_SIZE> text{};
  av_strerror(avError, text.data(), text.size());
  return text.data();
}

AvLogName::AvLogName(const void* context, const std::string& name) : context_(context) {
  if (context_ != nullptr) names().set(context_, name);
}

AvLogName::~AvLogName() {
  if (context_ != nullptr) names().remove(context_);
}

AvLogName::AvLogName(AvLogName&& other) noexcept : context_(std::exchange(other.context_, nullptr)) {}

AvLogName& AvLogName::operator=(AvLogName&& other) noexcept {
  std::swap(context_, other.context_);
  return *this;
}

}  // namespace vidloom
