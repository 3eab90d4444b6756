#include "vidloom/platform/ffmpeg/MovieErrors.h"

#include <cerrno>
#include <sstream>

#include "vidloom/platform/avfoundation/AVError.h"

extern "C" {
#include <libavutil/error.h>
}

namespace vidloom {

namespace {

bool isFull(int errnoValue) { return errnoValue == ENOSPC || errnoValue == EFBIG || errnoValue == EDQUOT; }

std::string textOf(const CMTime& time) {
  std::ostringstream text;
  text << time;
  return text.str();
}

}  // namespace

NSError MovieErrors::system(const std::string& doing, int errnoValue) const {
  if (errnoValue == ECANCELED) return cancelled();
  const NSError cause = AVMakePOSIXError(errnoValue);
  const AVError code = isFull(errnoValue) ? AVErrorDiskFull : errnoValue == ENOMEM ? AVErrorOutOfMemory : AVErrorExportFailed;
  return AVMakeError(code, "Cannot " + doing + " " + name() + ": " + cause.localizedDescription(), destination_, cause);
}

NSError MovieErrors::encoding(const std::string& what, const CMTime& time, const PacketEncoder::Result& result) const {
  if (result.errnoValue != 0) return system("write", result.errnoValue);
  const AVError code = result.avError == AVERROR(ENOMEM) ? AVErrorOutOfMemory : AVErrorEncodeFailed;
  return AVMakeError(code,
                     "Cannot encode the " + what + " of " + name() + " at " + textOf(time) + ": " + AvLog::words(result.avError),
                     destination_);
}

NSError MovieErrors::encoderMissing(const std::string& what, int avError) const {
  const AVError code = avError == AVERROR_ENCODER_NOT_FOUND ? AVErrorEncoderNotFound
                       : avError == AVERROR(ENOMEM)         ? AVErrorOutOfMemory
                                                            : AVErrorEncodeFailed;
  return AVMakeError(code, "Cannot open an encoder for the " + what + " of " + name() + ": " + AvLog::words(avError), destination_);
}

NSError MovieErrors::badTime(const std::string& what, const CMTime& time, const std::string& why) const {
  return AVMakeError(AVErrorInvalidSourceMedia, "Cannot append " + what + " at " + textOf(time) + " to " + name() + ": " + why,
                     destination_);
}

NSError MovieErrors::unsupported(const std::string& why) const {
  return AVMakeError(AVErrorUnsupportedOutputSettings, "Cannot write " + name() + ": " + why, destination_);
}

NSError MovieErrors::nothingWritten() const {
  return AVMakeError(AVErrorExportFailed, "Nothing was appended to " + name() + ": there is no movie to write", destination_);
}

NSError MovieErrors::cancelled() const {
  return AVMakeError(AVErrorOperationCancelled, "Writing " + name() + " was cancelled", destination_);
}

NSError MovieErrors::ended(const std::string& what) const {
  return AVMakeError(AVErrorOperationNotAllowed, "Cannot append to the " + what + " of " + name() + ": it has ended", destination_);
}

}  // namespace vidloom
