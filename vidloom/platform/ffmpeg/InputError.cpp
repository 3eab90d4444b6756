#include "vidloom/platform/ffmpeg/InputError.h"

#include "vidloom/platform/ffmpeg/AvLog.h"

extern "C" {
#include <libavutil/error.h>
}

namespace vidloom {

namespace {

AVError codeFor(int avError) {
  switch (avError) {
    case AVERROR(ENOMEM):
      return AVErrorOutOfMemory;
    case AVERROR_EXIT:
      return AVErrorOperationCancelled;
    case AVERROR_DEMUXER_NOT_FOUND:
      return AVErrorFileFormatNotRecognized;
    case AVERROR_DECODER_NOT_FOUND:
      return AVErrorDecoderNotFound;
    case AVERROR(EIO):
      return AVErrorFailedToLoadMediaData;
    default:
      return AVErrorFileFailedToParse;
  }
}

}  // namespace

NSError inputError(AVError code, const std::filesystem::path& file, const std::string& problem, int avError) {
  std::string text = '"' + file.string() + '"' + ' ' + problem;
  if (avError == 0) return AVMakeError(code, text, file);
  const std::string words = AvLog::words(avError);
  return AVMakeError(code, text + ": " + words, file,
                     NSError::errorWithDomain(kLibavErrorDomain, avError, {{NSLocalizedDescriptionKey, words}}));
}

NSError inputErrorFor(const std::filesystem::path& file, const std::string& problem, int avError) {
  return inputError(codeFor(avError), file, problem, avError);
}

void setInputError(std::optional<NSError>* error, NSError value) {
  if (error) *error = std::move(value);
}

}  // namespace vidloom
