#include "vidloom/platform/coreimage/CIFilter.h"

#include <algorithm>
#include <charconv>

#include "vidloom/platform/avfoundation/AVError.h"
#include "vidloom/platform/coreimage/CIRecipe.h"
#include "vidloom/platform/ffmpeg/NamedFilters.h"

namespace vidloom {

namespace {

bool fail(std::optional<NSError>* error, const std::string& text) {
  if (error) *error = AVMakeError(AVErrorUnsupportedOutputSettings, text);
  return false;
}

std::string textOf(double number) {
  char digits[32];
  return std::string(digits, std::to_chars(digits, digits + sizeof digits, number).ptr);
}

std::string listOf(const std::vector<CIFilterParameter>& parameters) {
  std::string keys;
  for (const CIFilterParameter& parameter : parameters) keys += (keys.empty() ? "" : ", ") + parameter.key;
  return keys.empty() ? "it has none" : "it has " + keys;
}

}  // namespace

std::vector<std::string> CIFilter::filterNames() {
  std::vector<std::string> names;
  for (const NamedFilter& filter : namedFilters()) names.push_back(filter.name);
  return names;
}

CIFilterRef CIFilter::filterWithName(const std::string& name, std::optional<NSError>* error) {
  const NamedFilter* known = namedFilter(name);
  if (!known) {
    fail(error, "There is no image filter \"" + name + "\"");
    return nullptr;
  }
  return CIFilterRef(new CIFilter(*known));
}

CIFilter::CIFilter(const NamedFilter& filter) : filter_(filter) {
  for (const auto& [key, defaultValue, minimum, maximum, description] : filter.parameters) {
    parameters_.push_back({key, defaultValue, minimum, maximum, description});
    values_.push_back(defaultValue);
  }
}

const std::string& CIFilter::name() const { return filter_.name; }
const std::string& CIFilter::description() const { return filter_.description; }

std::optional<size_t> CIFilter::indexOf(const std::string& key) const {
  const auto found = std::find_if(parameters_.begin(), parameters_.end(), [&](const auto& known) { return known.key == key; });
  if (found == parameters_.end()) return std::nullopt;
  return static_cast<size_t>(found - parameters_.begin());
}

bool CIFilter::setValue(const std::any& value, const std::string& forKey, std::optional<NSError>* error) {
  const auto index = indexOf(forKey);
  if (!index) {
    return fail(error, "The image filter \"" + name() + "\" has no parameter \"" + forKey + "\": " + listOf(parameters_));
  }
  const CIFilterParameter& parameter = parameters_[*index];
  const std::string what = "The parameter \"" + forKey + "\" of the image filter \"" + name() + "\" ";
  double number = 0;
  if (!numberValue({{forKey, value}}, forKey, number)) return fail(error, what + "must be a number");
  if (!(number >= parameter.minimum && number <= parameter.maximum)) {
    return fail(error, what + "must be from " + textOf(parameter.minimum) + " to " + textOf(parameter.maximum) + " and not " +
                           textOf(number));
  }
  values_[*index] = number;
  return true;
}

std::optional<double> CIFilter::valueForKey(const std::string& key) const {
  const auto index = indexOf(key);
  return index ? std::optional(values_[*index]) : std::nullopt;
}

CIImageRef CIFilter::outputImage() const { return inputImage_ ? CIRecipe::filtered(inputImage_, filter_, values_) : nullptr; }

}  // namespace vidloom
