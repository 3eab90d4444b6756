// A piece of a track's content that is played at one speed.
#pragma once

#include <memory>

#include "vidloom/platform/coremedia/CMTimeRange.h"
#include "vidloom/platform/foundation/NSDictionary.h"

namespace vidloom {

/// A value: lists of segments hold them directly.
class LUMScaleTime {
 public:
  LUMScaleTime(const CMTime& duration, const CMTimeRange& timeRange, const CMTime& start)
      : duration_(duration), start_(start), timeRange_(timeRange) {}
  static std::shared_ptr<LUMScaleTime> initWithDuration(const CMTime& duration, const CMTimeRange& timeRange, const CMTime& start);
  /// The same times without the user info.
  std::shared_ptr<LUMScaleTime> copy() const;

  /// How long it lasts on the output.
  const CMTime& duration() const { return duration_; }
  /// Where it begins on the output; the first of a list begins at the context's left offset.
  const CMTime& start() const { return start_; }
  /// The content that it plays, from the beginning of the track's used content.
  const CMTimeRange& timeRange() const { return timeRange_; }
  NSDictionary& userInfo() { return userInfo_; }
  const NSDictionary& userInfo() const { return userInfo_; }
  void setUserInfo(NSDictionary userInfo) { userInfo_ = std::move(userInfo); }

 private:
  NSDictionary userInfo_;
  CMTime duration_;
  CMTime start_;
  CMTimeRange timeRange_;
};

}  // namespace vidloom
