// The words of errors that end a reading.
#pragma once

#include <filesystem>
#include <optional>

#include "vidloom/platform/avfoundation/AVError.h"

namespace vidloom {

/// A file that gave nothing where it was needed: names it, the time in the composition and the cause, which lies under
/// NSUnderlyingErrorKey. The code is the cause's own where that is one of AVFoundationErrorDomain.
NSError readingError(const std::filesystem::path& file, double compositionSeconds, const std::optional<NSError>& cause);

}  // namespace vidloom
