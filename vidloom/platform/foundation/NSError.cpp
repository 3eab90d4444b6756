#include "vidloom/platform/foundation/NSError.h"

#include <filesystem>
#include <sstream>
#include <system_error>

namespace vidloom {

namespace {

std::optional<std::string> textUnder(const NSDictionary& dictionary, const std::string& key) {
  const auto found = dictionary.find(key);
  if (found == dictionary.end()) return std::nullopt;
  if (const auto* text = std::any_cast<std::string>(&found->second)) return *text;
  if (const auto* text = std::any_cast<const char*>(&found->second)) return *text;
  return std::nullopt;
}

std::string entryText(const NSDictionary& dictionary, const std::string& key) {
  if (const auto text = textUnder(dictionary, key)) return *text;
  const std::any& entry = dictionary.at(key);
  if (const auto* error = std::any_cast<NSError>(&entry)) return std::string("{") + error->description() + "}";
  if (const auto* path = std::any_cast<std::filesystem::path>(&entry)) return path->string();
  double number = 0;
  if (!numberValue(dictionary, key, number)) return "(object)";
  std::ostringstream text;
  text.precision(15);
  text << number;
  return text.str();
}

}  // namespace

NSError::NSError(std::string domain, int64_t code, NSDictionary userInfo)
    : domain_(std::move(domain)), code_(code), userInfo_(std::move(userInfo)) {}

NSError NSError::errorWithDomain(std::string domain, int64_t code, NSDictionary userInfo) {
  return {std::move(domain), code, std::move(userInfo)};
}

NSError NSError::errorWithPOSIXCode(int code) {
  return {NSPOSIXErrorDomain, code, {{NSLocalizedDescriptionKey, std::generic_category().message(code)}}};
}

std::string NSError::localizedDescription() const {
  if (const auto text = textUnder(userInfo_, NSLocalizedDescriptionKey)) return *text;
  return "The operation couldn\u2019t be completed. (" + domain_ + " error " + std::to_string(code_) + ".)";
}

std::optional<std::string> NSError::localizedFailureReason() const {
  return textUnder(userInfo_, NSLocalizedFailureReasonErrorKey);
}

std::optional<NSError> NSError::underlyingError() const {
  const auto found = userInfo_.find(NSUnderlyingErrorKey);
  if (found == userInfo_.end()) return std::nullopt;
  const auto* error = std::any_cast<NSError>(&found->second);
  return error != nullptr ? std::optional(*error) : std::nullopt;
}

std::string NSError::description() const {
  auto quoted = textUnder(userInfo_, NSLocalizedDescriptionKey);
  if (!quoted) quoted = localizedFailureReason();
  std::string text = "Error Domain=" + domain_ + " Code=" + std::to_string(code_) + " \"" + quoted.value_or("(null)") + "\"";
  if (userInfo_.empty()) return text;
  text += " UserInfo={";
  const char* separator = "";
  for (const auto& [key, entry] : userInfo_) {
    text += separator + key + "=" + entryText(userInfo_, key);
    separator = ", ";
  }
  return text + "}";
}

std::ostream& operator<<(std::ostream& out, const NSError& error) { return out << error.description(); }

}  // namespace vidloom
