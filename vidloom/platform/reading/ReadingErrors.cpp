#include "vidloom/platform/reading/ReadingErrors.h"

#include "vidloom/platform/foundation/NSLog.h"

namespace vidloom {

NSError readingError(const std::filesystem::path& file, double compositionSeconds, const std::optional<NSError>& cause) {
  const bool isPublished = cause && cause->domain() == AVFoundationErrorDomain;
  const AVError code = isPublished ? static_cast<AVError>(cause->code()) : AVErrorDecodeFailed;
  const std::string words = cause ? cause->localizedDescription() : "no picture can be decoded";
  return AVMakeError(
      code, NSStringWithFormat("Cannot read %s at %.6f s of the composition: %s", file.c_str(), compositionSeconds, words.c_str()),
      file, cause);
}

}  // namespace vidloom
