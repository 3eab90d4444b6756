#include "vidloom/audio/ConsoleLine.h"

#include <cstdio>

namespace vidloom {

void writeConsoleLine(const std::string& line) {
  const std::string whole = line + "\n";
  std::fwrite(whole.data(), 1, whole.size(), stderr);
}

}  // namespace vidloom
