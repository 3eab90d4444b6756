#include "tools/ExitCode.h"

#include <optional>

#include "vidloom/platform/avfoundation/AVError.h"

namespace vidloom {
namespace {

std::optional<ExitCode> exitCodeOfMediaError(int64_t code) {
  switch (code) {
    case AVErrorDiskFull:
    case AVErrorFileAlreadyExists:
    case AVErrorInvalidOutputURLPathExtension:
      return ExitCode::output;
    case AVErrorOutOfMemory:
      return ExitCode::limit;
    case AVErrorOperationCancelled:
      return ExitCode::cancelled;
    case AVErrorDecodeFailed:
    case AVErrorDecoderNotFound:
    case AVErrorUndecodableMediaData:
    case AVErrorEncoderNotFound:
    case AVErrorEncodeFailed:
    case AVErrorUnsupportedOutputSettings:
      return ExitCode::codec;
    case AVErrorInvalidSourceMedia:
    case AVErrorFileFormatNotRecognized:
    case AVErrorFileFailedToParse:
    case AVErrorFailedToParse:
    case AVErrorFailedToLoadMediaData:
    case AVErrorContentIsProtected:
    case AVErrorOperationNotSupportedForAsset:
    case AVErrorNoSourceTrack:
      return ExitCode::input;
    default:
      return std::nullopt;
  }
}

}  // namespace

ExitCode exitCodeOf(const NSError& error) {
  for (std::optional<NSError> at = error; at; at = at->underlyingError()) {
    if (at->domain() == NSPOSIXErrorDomain) return ExitCode::output;
    if (at->domain() != AVFoundationErrorDomain) continue;
    if (const auto code = exitCodeOfMediaError(at->code())) return *code;
  }
  return ExitCode::internal;
}

std::string textOf(const NSError& error) {
  std::string text;
  for (std::optional<NSError> at = error; at; at = at->underlyingError()) {
    const std::string description = at->localizedDescription();
    if (description.empty() || text.find(description) != std::string::npos) continue;
    text += (text.empty() ? "" : ": ") + description;
  }
  return text.empty() ? error.description() : text;
}

std::string textOf(const NSError& error, const std::filesystem::path& file) {
  const std::string text = textOf(error);
  return text.find(file.filename().string()) == std::string::npos ? file.string() + ": " + text : text;
}

}  // namespace vidloom
