#include "hostkit/ProjectProblem.h"

namespace vidloom {

std::string ProjectProblem::text() const { return file.string() + ":" + (pointer.empty() ? "/" : pointer) + ": " + message; }

std::string jsonPointerTo(const std::string& pointer, const std::string& key) {
  std::string result = pointer + "/";
  for (const char c : key) {
    if (c == '~') {
      result += "~0";
    } else if (c == '/') {
      result += "~1";
    } else {
      result += c;
    }
  }
  return result;
}

std::string jsonPointerTo(const std::string& pointer, size_t index) { return pointer + "/" + std::to_string(index); }

}  // namespace vidloom
