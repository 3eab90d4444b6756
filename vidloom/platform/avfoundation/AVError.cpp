#include "vidloom/platform/avfoundation/AVError.h"

#include <system_error>

namespace vidloom {

NSError AVMakeError(AVError code, const std::string& description, const std::filesystem::path& file,
                    const std::optional<NSError>& underlying) {
  NSDictionary userInfo{{NSLocalizedDescriptionKey, description}};
  if (!file.empty()) userInfo[NSFilePathErrorKey] = file.string();
  if (underlying) userInfo[NSUnderlyingErrorKey] = *underlying;
  return NSError::errorWithDomain(AVFoundationErrorDomain, code, std::move(userInfo));
}

NSError AVMakePOSIXError(int errnoValue) {
  return NSError::errorWithDomain(NSPOSIXErrorDomain, errnoValue,
                                  {{NSLocalizedDescriptionKey, std::generic_category().message(errnoValue)}});
}

}  // namespace vidloom
