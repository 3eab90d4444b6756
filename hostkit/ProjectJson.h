// Reading single values of a JSON document, with every problem noted where it stands.
#pragma once

#include <cstdint>
#include <filesystem>
#include <initializer_list>
#include <nlohmann/json.hpp>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "hostkit/ProjectProblem.h"
#include "vidloom/platform/coremedia/CMTime.h"

namespace vidloom {

/// A value of the document and its place. Refers to the document, which must outlive it.
struct ProjectJsonNode {
  const nlohmann::json* value = nullptr;
  std::string pointer;

  /// The member of that name of an object; a null value where there is none.
  ProjectJsonNode member(const std::string& key) const;
  /// An element of an array that has it.
  ProjectJsonNode element(size_t index) const;
  explicit operator bool() const { return value != nullptr; }
};

/// Reads values of the expected types. Whatever does not fit is noted and read as nullopt.
class ProjectJsonReader {
 public:
  ProjectJsonReader(std::filesystem::path file, ProjectProblems& problems) : file_(std::move(file)), problems_(problems) {}

  /// The document in the file. Nullopt for a file that cannot be read or is no JSON; a key that stands twice in an object is noted.
  std::optional<nlohmann::json> document();
  void note(const std::string& pointer, const std::string& message);

  bool isObject(const ProjectJsonNode& node);
  bool isArray(const ProjectJsonNode& node);
  /// Notes every member whose name is not in the list; whether there is none.
  bool refuseOtherKeys(const ProjectJsonNode& object, const std::string& what, const std::set<std::string>& known);
  /// The member of that name; noted where it is missing.
  ProjectJsonNode required(const ProjectJsonNode& object, const std::string& key);

  std::optional<uint64_t> wholeNumber(const ProjectJsonNode& node);
  std::optional<double> number(const ProjectJsonNode& node);
  std::optional<bool> boolean(const ProjectJsonNode& node);
  std::optional<std::string> string(const ProjectJsonNode& node);
  /// One of these words, by its place in the list.
  std::optional<size_t> choice(const ProjectJsonNode& node, std::initializer_list<const char*> words);
  /// Exactly `count` numbers.
  std::optional<std::vector<double>> numbers(const ProjectJsonNode& node, size_t count);
  /// Seconds: a number or an exact string.
  std::optional<CMTime> time(const ProjectJsonNode& node);

 private:
  void noteType(const ProjectJsonNode& node, const std::string& expected);

  std::filesystem::path file_;
  ProjectProblems& problems_;
};

}  // namespace vidloom
