#include "vidloom/timeline/LUMTrack.h"

#include "vidloom/platform/avfoundation/AVAsset.h"
#include "vidloom/platform/foundation/NSClassName.h"
#include "vidloom/platform/foundation/NSLog.h"
#include "vidloom/speed/LUMScaleContext.h"
#include "vidloom/timeline/LUMCropData.h"
#include "vidloom/timeline/LUMGlobal.h"

namespace vidloom {

std::shared_ptr<LUMTrack> LUMTrack::initWithId(uint64_t objectId) {
  auto track = std::make_shared<LUMTrack>(LUMTrack());
  return track->prepareWithId(objectId) ? track : nullptr;
}

bool LUMTrack::prepareWithId(uint64_t objectId) {
  if (LUMGlobal::LUMIdsStackContainsObject(objectId)) {
    LUMGlobal::LUMLog(NSStringWithFormat("LUMTrack object with id: %lu exist. Return NULL from LUMTrack initWithId", objectId));
    return false;
  }
  objectId_ = objectId;
  assetDuration_ = kCMTimeZero;
  start_ = kCMTimeZero;
  leftTrimOffset_ = kCMTimeZero;
  rightTrimOffset_ = kCMTimeZero;
  transform_ = CGAffineTransformIdentity;
  userInfo_ = {};
  return true;
}

CMTime LUMTrack::internalDuration() const {
  return CMTimeSubtract(CMTimeSubtract(assetDuration(), leftTrimOffset_), rightTrimOffset_);
}

CMTimeRange LUMTrack::trackInnerTimeRange() const { return CMTimeRangeMake(leftTrimOffset_, internalDuration()); }

CMTimeRange LUMTrack::trackGlobalTimeRange() const { return CMTimeRangeMake(start_, internalDuration()); }

CMTime LUMTrack::duration() const {
  if (!scaleContext_) return internalDuration();
  const std::vector<LUMScaleTime> times = scaleContext_->generateTimesForTrack(weak_from_this().lock());
  if (times.empty()) return internalDuration();
  CMTime sum = kCMTimeZero;
  for (const LUMScaleTime& time : times) sum = CMTimeAdd(sum, time.duration());
  return sum;
}

CMTimeRange LUMTrack::audioTrackGlobalTimeRange() const {
  NSLogAndAbort(NSStringWithFormat("audioTrackGlobalTimeRange: %s %lu is not a track of a media file",
                                   NSStringFromClass(typeid(*this)).c_str(), objectId_));
}

std::shared_ptr<LUMTrack> LUMTrack::copyWithId(uint64_t) const { return nullptr; }

}  // namespace vidloom
