// The published error codes of the media platform.
#pragma once

#include <filesystem>
#include <string>

#include "vidloom/platform/foundation/NSError.h"

namespace vidloom {

inline const std::string AVFoundationErrorDomain = "AVFoundationErrorDomain";

enum AVError : int64_t {
  AVErrorUnknown = -11800,
  AVErrorOutOfMemory = -11801,
  AVErrorDiskFull = -11807,
  AVErrorExportFailed = -11820,
  AVErrorDecodeFailed = -11821,
  AVErrorInvalidSourceMedia = -11822,
  AVErrorFileAlreadyExists = -11823,
  AVErrorCompositionTrackSegmentsNotContiguous = -11824,
  AVErrorInvalidCompositionTrackSegmentDuration = -11825,
  AVErrorInvalidCompositionTrackSegmentSourceStartTime = -11826,
  AVErrorInvalidCompositionTrackSegmentSourceDuration = -11827,
  AVErrorFileFormatNotRecognized = -11828,
  AVErrorFileFailedToParse = -11829,
  AVErrorContentIsProtected = -11831,
  AVErrorDecoderNotFound = -11833,
  AVErrorEncoderNotFound = -11834,
  AVErrorOperationNotSupportedForAsset = -11838,
  AVErrorInvalidVideoComposition = -11841,
  AVErrorInvalidOutputURLPathExtension = -11843,
  AVErrorFailedToLoadMediaData = -11849,
  AVErrorFailedToParse = -11853,
  AVErrorUndecodableMediaData = -11855,
  AVErrorVideoCompositorFailed = -11858,
  AVErrorUnsupportedOutputSettings = -11861,
  AVErrorOperationNotAllowed = -11862,
  AVErrorNoSourceTrack = -11869,
  AVErrorOperationCancelled = -11878,
  AVErrorEncodeFailed = -11883,
};

/// An error of AVFoundationErrorDomain with that text, the file (where given) under NSFilePathErrorKey and the cause (where given)
/// under NSUnderlyingErrorKey.
NSError AVMakeError(AVError code, const std::string& description, const std::filesystem::path& file = {},
                    const std::optional<NSError>& underlying = std::nullopt);
/// An NSPOSIXErrorDomain error with the system's words for `errnoValue`.
NSError AVMakePOSIXError(int errnoValue);

}  // namespace vidloom
