// Brings pictures to the movie writer.
#pragma once

#include "vidloom/platform/avfoundation/AVSampleFeed.h"

namespace vidloom {

/// Of the pictures before the session's start the last one is kept: it is on screen when the session starts, unless one begins
/// right there.
class AVVideoSampleFeed : public AVSampleFeed {
 public:
  std::string problemWith(const CMSampleBufferRef& sample) const override;
  bool append(const CMSampleBufferRef& sample, const CMTime& time, MovieWriter& movie, std::optional<NSError>* error) override;
  bool end(MovieWriter& movie, std::optional<NSError>* error) override;

 private:
  PictureRef early_;
  CMTime earlyEnd_;
};

}  // namespace vidloom
