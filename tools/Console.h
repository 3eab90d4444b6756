#pragma once

#include <string>

namespace vidloom {

/// Standard error, shared by messages, the library's log and a status line that stays at the bottom. Any thread.
class Console {
 public:
  /// Routes the library's log here.
  static void takeLog();
  /// Leaves out the lines of the log that contain this text.
  static void muteLog(const std::string& text);
  static void line(const std::string& text);
  /// "vidloom: text"
  static void message(const std::string& text);
  /// As it is, without a line break of its own.
  static void raw(const std::string& text);
  /// Replaces the status line; an empty text ends it, leaving the last one standing.
  static void status(const std::string& text);
  static bool isTerminal();
  /// Of the terminal; 80 where it does not say.
  static int columns();
};

/// Writes data to standard output; false, with a message, where that is closed or full.
bool writeToStandardOutput(const std::string& text);

}  // namespace vidloom
