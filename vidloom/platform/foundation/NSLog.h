// The system log: one line to standard error and to syslog, or to a sink that the host installs.
#pragma once

#include <functional>
#include <string>

namespace vidloom {

/// Receives every line without its time stamp. May be called on any thread, several at once; must not log itself.
using NSLogSink = std::function<void(const std::string& line)>;

/// Writes one line to the system log. Thread-safe; never throws.
void NSLog(const std::string& line);

/// Routes the log to `sink`; an empty one restores standard error and syslog. Returns the sink that was installed before.
NSLogSink NSLogSetSink(NSLogSink sink);

/// Writes the line to standard error and aborts: for calls that are a programming error by their contract. The line names the
/// operation and the argument.
[[noreturn]] void NSLogAndAbort(const std::string& line);

/// printf-style text as a string.
[[gnu::format(printf, 1, 2)]] std::string NSStringWithFormat(const char* format, ...);

}  // namespace vidloom
