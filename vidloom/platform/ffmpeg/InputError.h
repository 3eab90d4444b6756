// libav's failures on reading, in the published error codes.
#pragma once

#include <filesystem>
#include <optional>
#include <string>

#include "vidloom/platform/avfoundation/AVError.h"

namespace vidloom {

inline const std::string kLibavErrorDomain = "LibavErrorDomain";  ///< codes are libav's

/// `"path" problem: libav's words`, with libav's error under NSUnderlyingErrorKey where avError is not 0.
NSError inputError(AVError code, const std::filesystem::path& file, const std::string& problem, int avError = 0);
/// The same with the code that fits avError best.
NSError inputErrorFor(const std::filesystem::path& file, const std::string& problem, int avError);
void setInputError(std::optional<NSError>* error, NSError value);

}  // namespace vidloom
