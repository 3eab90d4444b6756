// libav's messages in the system log.
#pragma once

#include <string>

namespace vidloom {

/// Routes libav's warnings and errors to NSLog. A message of a context that has a name (see AvLogName) starts with that name; of
/// equal lines in a row only the first is written.
class AvLog {
 public:
  /// Once per process; harmless when repeated. Any thread.
  static void install();
  /// libav's words for one of its error codes.
  static std::string words(int avError);
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

}  // namespace vidloom
