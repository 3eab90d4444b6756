// Errors as values: a domain, a code and a dictionary of details.
#pragma once

#include <memory>
#include <optional>
#include <ostream>
#include <string>

#include "vidloom/platform/foundation/NSDictionary.h"

namespace vidloom {

inline const std::string NSLocalizedDescriptionKey = "NSLocalizedDescription";
inline const std::string NSLocalizedFailureReasonErrorKey = "NSLocalizedFailureReason";
inline const std::string NSUnderlyingErrorKey = "NSUnderlyingError";  ///< holds an NSError
inline const std::string NSFilePathErrorKey = "NSFilePath";           ///< holds a std::string
inline const std::string NSPOSIXErrorDomain = "NSPOSIXErrorDomain";   ///< codes are errno values
inline const std::string NSCocoaErrorDomain = "NSCocoaErrorDomain";
inline constexpr int64_t NSFileNoSuchFileError = 4;
inline constexpr int64_t NSFileWriteUnknownError = 512;
inline constexpr int64_t NSFileWriteNoPermissionError = 513;
inline constexpr int64_t NSFileWriteVolumeReadOnlyError = 642;

/// A bare NSError{} has no domain and code 0: an error without a word. "No error" is std::nullopt, not a bare error.
class NSError {
 public:
  NSError() = default;
  NSError(std::string domain, int64_t code, NSDictionary userInfo = {});
  static NSError errorWithDomain(std::string domain, int64_t code, NSDictionary userInfo = {});
  /// The system's error of that errno, with the system's words as the description.
  static NSError errorWithPOSIXCode(int code);

  const std::string& domain() const { return domain_; }
  int64_t code() const { return code_; }
  const NSDictionary& userInfo() const { return userInfo_; }

  /// The text under NSLocalizedDescriptionKey, else a sentence made of domain and code.
  std::string localizedDescription() const;
  std::optional<std::string> localizedFailureReason() const;
  /// The error under NSUnderlyingErrorKey.
  std::optional<NSError> underlyingError() const;
  /// What "%@" prints: Error Domain=D Code=C "text" UserInfo={NSLocalizedDescription=text}.
  std::string description() const;

 private:
  std::string domain_;
  int64_t code_ = 0;
  NSDictionary userInfo_;
};

std::ostream& operator<<(std::ostream& out, const NSError& error);

}  // namespace vidloom
