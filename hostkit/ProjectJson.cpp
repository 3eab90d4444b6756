#include "hostkit/ProjectJson.h"

#include <cerrno>
#include <fstream>
#include <iterator>
#include <set>
#include <system_error>

#include "hostkit/TimeText.h"

namespace vidloom {
namespace {

using nlohmann::json;

constexpr uintmax_t kMaxFileBytes = 64U << 20;
constexpr size_t kDeepest = 64;

/// Follows the parser through the document and finds keys that stand twice in one object: the parser itself keeps the last.
class RepeatedKeyFinder {
 public:
  explicit RepeatedKeyFinder(ProjectJsonReader& reader) : reader_(reader) {}

  bool follow(json::parse_event_t event, const json& parsed) {
    switch (event) {
      case json::parse_event_t::object_start:
      case json::parse_event_t::array_start:
        enter();
        break;
      case json::parse_event_t::object_end:
      case json::parse_event_t::array_end:
        levels_.pop_back();
        break;
      case json::parse_event_t::key:
        meet(parsed.get<std::string>());
        break;
      case json::parse_event_t::value:
        if (!levels_.empty()) ++levels_.back().index;
        break;
    }
    return true;
  }

 private:
  struct Level {
    std::string pointer;
    std::set<std::string> keys;
    std::string key;
    size_t index = 0;  ///< of the next element, in arrays
  };

  void enter() {
    std::string pointer;
    if (!levels_.empty()) {
      Level& outer = levels_.back();
      if (levels_.size() >= kDeepest) {  // no project is that deep; a pointer a level would be quadratic
        levels_.push_back({outer.pointer, {}, {}, 0});
        return;
      }
      pointer = outer.keys.empty() ? jsonPointerTo(outer.pointer, outer.index) : jsonPointerTo(outer.pointer, outer.key);
      ++outer.index;
    }
    levels_.push_back({pointer, {}, {}, 0});
  }

  void meet(const std::string& key) {
    Level& level = levels_.back();
    level.key = key;
    if (!level.keys.insert(key).second) {
      reader_.note(jsonPointerTo(level.pointer, key), "the key \"" + key + "\" stands here twice");
    }
  }

  ProjectJsonReader& reader_;
  std::vector<Level> levels_;
};

/// What the parser says, without its own name and numbers in front.
std::string reasonOf(const json::exception& failure) {
  const std::string text = failure.what();
  const size_t close = text.find("] ");
  return close == std::string::npos ? text : text.substr(close + 2);
}

}  // namespace

ProjectJsonNode ProjectJsonNode::member(const std::string& key) const {
  const auto found = value->find(key);
  if (found == value->end()) return {};
  return {&*found, jsonPointerTo(pointer, key)};
}

ProjectJsonNode ProjectJsonNode::element(size_t index) const { return {&(*value)[index], jsonPointerTo(pointer, index)}; }

void ProjectJsonReader::note(const std::string& pointer, const std::string& message) {
  problems_.push_back({file_, pointer, message});
}

std::optional<json> ProjectJsonReader::document() {
  std::error_code failure;
  const auto status = std::filesystem::status(file_, failure);
  if (!std::filesystem::is_regular_file(status)) {
    note("", failure ? failure.message() : "not a regular file");
    return std::nullopt;
  }
  const uintmax_t size = std::filesystem::file_size(file_, failure);
  std::ifstream stream(file_, std::ios::binary);
  if (failure || !stream) {
    note("", "the file cannot be read: " + std::error_code(errno, std::generic_category()).message());
    return std::nullopt;
  }
  if (size > kMaxFileBytes) {
    note("", "the file is too large for a project: more than 64 MiB");
    return std::nullopt;
  }
  RepeatedKeyFinder repeated(*this);
  try {
    return json::parse(stream, [&](int, json::parse_event_t event, json& parsed) { return repeated.follow(event, parsed); });
  } catch (const json::exception& problem) {
    note("", "not valid JSON: " + reasonOf(problem));
    return std::nullopt;
  }
}

void ProjectJsonReader::noteType(const ProjectJsonNode& node, const std::string& expected) {
  note(node.pointer, "must be " + expected + ", not " + node.value->type_name());
}

bool ProjectJsonReader::isObject(const ProjectJsonNode& node) {
  if (!node.value->is_object()) noteType(node, "an object");
  return node.value->is_object();
}

bool ProjectJsonReader::isArray(const ProjectJsonNode& node) {
  if (!node.value->is_array()) noteType(node, "an array");
  return node.value->is_array();
}

bool ProjectJsonReader::refuseOtherKeys(const ProjectJsonNode& object, const std::string& what,
                                        const std::set<std::string>& known) {
  bool areKnown = true;
  for (const auto& [key, value] : object.value->items()) {
    if (known.contains(key)) continue;
    note(jsonPointerTo(object.pointer, key), "\"" + key + "\" is no key of " + what);
    areKnown = false;
  }
  return areKnown;
}

ProjectJsonNode ProjectJsonReader::required(const ProjectJsonNode& object, const std::string& key) {
  const ProjectJsonNode node = object.member(key);
  if (!node) note(object.pointer, "the key \"" + key + "\" is missing");
  return node;
}

std::optional<uint64_t> ProjectJsonReader::wholeNumber(const ProjectJsonNode& node) {
  if (node.value->is_number_unsigned()) return node.value->get<uint64_t>();
  note(node.pointer, "must be a whole number that is not negative");
  return std::nullopt;
}

std::optional<double> ProjectJsonReader::number(const ProjectJsonNode& node) {
  if (node.value->is_number()) return node.value->get<double>();
  noteType(node, "a number");
  return std::nullopt;
}

std::optional<bool> ProjectJsonReader::boolean(const ProjectJsonNode& node) {
  if (node.value->is_boolean()) return node.value->get<bool>();
  noteType(node, "true or false");
  return std::nullopt;
}

std::optional<std::string> ProjectJsonReader::string(const ProjectJsonNode& node) {
  if (node.value->is_string()) return node.value->get<std::string>();
  noteType(node, "a string");
  return std::nullopt;
}

std::optional<size_t> ProjectJsonReader::choice(const ProjectJsonNode& node, std::initializer_list<const char*> words) {
  const auto text = string(node);
  if (!text) return std::nullopt;
  std::string list;
  for (const char* const* word = words.begin(); word != words.end(); ++word) {
    if (*text == *word) return static_cast<size_t>(word - words.begin());
    list += (list.empty() ? "\"" : ", \"") + std::string(*word) + "\"";
  }
  note(node.pointer, "\"" + *text + "\" is none of " + list);
  return std::nullopt;
}

std::optional<std::vector<double>> ProjectJsonReader::numbers(const ProjectJsonNode& node, size_t count) {
  std::vector<double> result;
  if (node.value->is_array()) {
    for (const json& element : *node.value) {
      if (element.is_number()) result.push_back(element.get<double>());
    }
    if (result.size() == count && node.value->size() == count) return result;
  }
  note(node.pointer, "must be an array of " + std::to_string(count) + " numbers");
  return std::nullopt;
}

std::optional<CMTime> ProjectJsonReader::time(const ProjectJsonNode& node) {
  std::string problem = "must be a time: seconds as a number, or an exact string \"N\" or \"N/D\"";
  std::optional<CMTime> result;
  if (node.value->is_number()) {
    result = timeFromSeconds(node.value->get<double>(), problem);
  } else if (node.value->is_string()) {
    result = timeFromExactText(node.value->get<std::string>(), problem);
  }
  if (!result) note(node.pointer, problem);
  return result;
}

}  // namespace vidloom
