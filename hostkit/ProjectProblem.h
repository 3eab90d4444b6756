#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace vidloom {

/// What is wrong with a project file, and where.
struct ProjectProblem {
  std::filesystem::path file;
  std::string pointer;  ///< JSON pointer to the value (to its object where a key is missing)
  std::string message;

  /// "file:/json/pointer: message"
  std::string text() const;
};
using ProjectProblems = std::vector<ProjectProblem>;

/// A JSON pointer to a member of what `pointer` points to.
std::string jsonPointerTo(const std::string& pointer, const std::string& key);
std::string jsonPointerTo(const std::string& pointer, size_t index);

}  // namespace vidloom
