// libav's messages in the system log.
#pragma once

#include <cstdarg>
#include <string>

namespace vidloom {

/// Routes libav's errors to NSLog. A message of a context that has a name (see AvLogName), or that comes while a thread works for
/// a file (see AvLogScope), starts with that name. Of equal lines in a row only the first is written, and no more than a few for
/// each name or scope.
class AvLog {
 public:
  /// Once per process; harmless when repeated. Any thread.
  static void install();
  /// libav's words for one of its error codes.
  static std::string words(int avError);

 private:
  static void receive(void* context, int level, const char* format, va_list arguments);
};

/// For as long as it lives, messages of that libav context (a format or codec context) are preceded by `name`, as a rule the
/// file's.
class AvLogName {
 public:
  AvLogName() = default;
  AvLogName(const void* context, const std::string& name);
  ~AvLogName();
  AvLogName(AvLogName&& other) noexcept;
  AvLogName& operator=(AvLogName&& other) noexcept;

 private:
  const void* context_ = nullptr;
};

/// For as long as it lives, messages on this thread of contexts without a name are preceded by `name`, or not written at all.
class AvLogScope {
 public:
  enum class Mode { write, drop };
  explicit AvLogScope(const std::string& name, Mode mode = Mode::write);
  ~AvLogScope();
  AvLogScope(const AvLogScope&) = delete;
  AvLogScope& operator=(const AvLogScope&) = delete;

 private:
  friend class AvLog;
  const std::string& name_;
  Mode mode_;
  int linesLeft_;
  AvLogScope* outer_;
};

}  // namespace vidloom
