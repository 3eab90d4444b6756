#include "vidloom/platform/ffmpeg/AvLog.h"

#include <array>
#include <cstdio>
#include <map>
#include <mutex>
#include <string_view>
#include <utility>

#include "vidloom/platform/foundation/NSLog.h"

extern "C" {
#include <libavutil/error.h>
#include <libavutil/log.h>
}

namespace vidloom {

namespace {

constexpr size_t maximumLineBytes = 1024;
constexpr int linesForEachName = 10;

struct Name {
  std::string text;
  int linesLeft = linesForEachName;
};

class Names {
 public:
  void set(const void* context, const std::string& name) {
    const std::lock_guard lock(mutex_);
    names_[context] = {name, linesForEachName};
  }
  void remove(const void* context) {
    const std::lock_guard lock(mutex_);
    names_.erase(context);
  }
  /// The context's name, where it has one and has not said too much; counts the line.
  bool take(const void* context, std::string& name, bool& isKnown) {
    const std::lock_guard lock(mutex_);
    const auto found = names_.find(context);
    isKnown = found != names_.end();
    if (!isKnown || found->second.linesLeft <= 0) return false;
    --found->second.linesLeft;
    name = found->second.text;
    return true;
  }
  bool isRepeated(const std::string& line) {
    const std::lock_guard lock(mutex_);
    return std::exchange(lastLine_, line) == line;
  }

 private:
  std::mutex mutex_;
  std::map<const void*, Name> names_;
  std::string lastLine_;
};

/// Lives as long as the process: libav may log from its threads at any time.
Names& names() {
  static Names& theOne = *std::make_unique<Names>().release();
  return theOne;
}

thread_local AvLogScope* currentScope = nullptr;

std::string textOf(void* context, const char* format, va_list arguments) {
  std::array<char, maximumLineBytes> text{};
  vsnprintf(text.data(), text.size(), format, arguments);
  std::string line = text.data();
  while (!line.empty() && (line.back() == '\n' || line.back() == '\r')) line.pop_back();
  const AVClass* type = context ? *static_cast<AVClass**>(context) : nullptr;
  const char* name = type && type->item_name ? type->item_name(context) : nullptr;
  const bool isNamed = name && std::string_view(name) != "NULL" && !line.empty();
  return isNamed ? name + std::string(": ") + line : line;
}

}  // namespace

void AvLog::receive(void* context, int level, const char* format, va_list arguments) {
  if (level > AV_LOG_ERROR) return;
  std::string name;
  bool isKnown = false;
  if (!names().take(context, name, isKnown)) {
    AvLogScope* scope = currentScope;
    if (isKnown || (scope && (scope->mode_ == AvLogScope::Mode::drop || scope->linesLeft_-- <= 0))) return;
    if (scope) name = scope->name_;
  }
  const std::string line = textOf(context, format, arguments);
  if (line.empty()) return;
  const std::string whole = name.empty() ? line : name + ": " + line;
  if (!names().isRepeated(whole)) NSLog(whole);
}

void AvLog::install() {
  static std::once_flag once;
  std::call_once(once, [] {
    names();
    av_log_set_level(AV_LOG_ERROR);
    av_log_set_callback(receive);
  });
}

AvLogScope::AvLogScope(const std::string& name, Mode mode)
    : name_(name), mode_(mode), linesLeft_(linesForEachName), outer_(std::exchange(currentScope, this)) {}

AvLogScope::~AvLogScope() { currentScope = outer_; }

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
