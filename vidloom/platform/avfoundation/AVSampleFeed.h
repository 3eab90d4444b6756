// Brings the samples of one input to the movie writer.
#pragma once

#include <memory>
#include <optional>
#include <string>

#include "vidloom/platform/coremedia/CMSampleBuffer.h"
#include "vidloom/platform/ffmpeg/MovieWriter.h"

namespace vidloom {

/// One thread at a time. Times are relative to the session's start.
class AVSampleFeed {
 public:
  virtual ~AVSampleFeed() = default;
  /// Why the sample cannot be brought; empty where it can.
  virtual std::string problemWith(const CMSampleBufferRef& sample) const = 0;
  virtual bool append(const CMSampleBufferRef& sample, const CMTime& time, MovieWriter& movie, std::optional<NSError>* error) = 0;
  /// Brings what was held back and ends the track.
  virtual bool end(MovieWriter& movie, std::optional<NSError>* error) = 0;
};

}  // namespace vidloom
