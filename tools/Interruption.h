#pragma once

namespace vidloom {

/// Ctrl-C and its like (SIGINT, SIGTERM, SIGHUP). At first such a signal ends the program at once, with exit code 6; who has
/// something to tidy up says so and looks at the count from then on.
class Interruption {
 public:
  /// First thing in main. Also makes writes beyond the file-size limit and into closed pipes fail instead of killing the program.
  static void install();
  /// From now on signals are only counted.
  static void onlyCount();
  static int count();
};

}  // namespace vidloom
