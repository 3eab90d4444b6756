// The errors of writing one movie.
#pragma once

#include <filesystem>
#include <string>

#include "vidloom/platform/coremedia/CMTime.h"
#include "vidloom/platform/ffmpeg/PacketEncoder.h"
#include "vidloom/platform/foundation/NSError.h"

namespace vidloom {

/// Translates what went wrong into errors that name the destination and the cause.
class MovieErrors {
 public:
  explicit MovieErrors(std::filesystem::path destination) : destination_(std::move(destination)) {}

  /// `doing` continues "Cannot ... name": "write", "create files for".
  NSError system(const std::string& doing, int errnoValue) const;
  /// `what` names the stream: "video", "sound".
  NSError encoding(const std::string& what, const CMTime& time, const PacketEncoder::Result& result) const;
  NSError encoderMissing(const std::string& what, int avError) const;
  NSError badTime(const std::string& what, const CMTime& time, const std::string& why) const;
  NSError unsupported(const std::string& why) const;
  NSError nothingWritten() const;
  NSError cancelled() const;
  NSError ended(const std::string& what) const;

 private:
  std::string name() const { return '"' + destination_.string() + '"'; }
  std::filesystem::path destination_;
};

}  // namespace vidloom
