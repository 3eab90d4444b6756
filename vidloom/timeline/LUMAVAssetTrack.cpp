#include "vidloom/timeline/LUMAVAssetTrack.h"

#include <cmath>

#include "vidloom/platform/avfoundation/AVAsset.h"
#include "vidloom/speed/LUMScaleContext.h"
#include "vidloom/timeline/LUMCropData.h"

namespace vidloom {

namespace {

std::shared_ptr<AVAssetTrack> firstTrack(const std::shared_ptr<AVAsset>& asset, const AVMediaType& mediaType) {
  if (!asset) return nullptr;
  const auto tracks = asset->tracksWithMediaType(mediaType);
  return tracks.empty() ? nullptr : tracks.front();
}

/// All-zero, an invalid time, without a track.
CMTime durationOf(const std::shared_ptr<AVAssetTrack>& track) { return track ? track->timeRange().duration : CMTime{}; }

}  // namespace

CGAffineTransform fixedPreferredTransform(const AVAssetTrack& track) {
  struct Orientation {
    double a, b, c, d;
    bool movesByWidthX, movesByHeightX, movesByWidthY, movesByHeightY;
  };
  static constexpr Orientation kOrientations[] = {
      {1, 0, 0, 1, false, false, false, false}, {1, 0, 0, -1, false, false, false, true}, {-1, 0, 0, 1, true, false, false, false},
      {-1, 0, 0, -1, true, false, false, true}, {0, -1, 1, 0, false, false, true, false}, {0, 1, -1, 0, false, true, false, false},
      {0, 1, 1, 0, false, false, false, false}, {0, -1, -1, 0, false, true, true, false},
  };
  CGAffineTransform transform = track.preferredTransform();
  const CGSize size = track.naturalSize();
  for (const Orientation& o : kOrientations) {
    if (transform.a != o.a || transform.b != o.b || transform.c != o.c || transform.d != o.d) continue;
    transform.tx = o.movesByWidthX ? size.width : o.movesByHeightX ? size.height : 0;
    transform.ty = o.movesByWidthY ? size.width : o.movesByHeightY ? size.height : 0;
    break;
  }
  return transform;
}

std::shared_ptr<LUMAVAssetTrack> LUMAVAssetTrack::initWithId(uint64_t objectId) {
  auto track = std::make_shared<LUMAVAssetTrack>(LUMAVAssetTrack());
  return track->prepareWithId(objectId) ? track : nullptr;
}

std::shared_ptr<LUMAVAssetTrack> LUMAVAssetTrack::initWithAVAsset(std::shared_ptr<AVAsset> asset, uint64_t objectId) {
  auto track = std::make_shared<LUMAVAssetTrack>(LUMAVAssetTrack());
  return track->prepareWithAVAsset(std::move(asset), objectId) ? track : nullptr;
}

bool LUMAVAssetTrack::prepareWithAVAsset(std::shared_ptr<AVAsset> asset, uint64_t objectId) {
  if (!prepareWithId(objectId)) return false;
  asset_ = std::move(asset);
  const std::shared_ptr<AVAssetTrack> video = videoTrack();
  const bool onlyAudio = isOnlyAudioTrack();
  assetDuration_ = durationOf(onlyAudio ? audioTrack() : video);
  if (onlyAudio) {
    setTransform(CGAffineTransformIdentity);
  } else {
    setTransform(video ? fixedPreferredTransform(*video) : CGAffineTransform{});
  }
  return true;
}

std::shared_ptr<AVAssetTrack> LUMAVAssetTrack::videoTrack() const { return firstTrack(asset_, AVMediaTypeVideo); }

std::shared_ptr<AVAssetTrack> LUMAVAssetTrack::audioTrack() const { return firstTrack(asset_, AVMediaTypeAudio); }

bool LUMAVAssetTrack::isOnlyAudioTrack() const { return !videoTrack() && audioTrack(); }

CGSize LUMAVAssetTrack::aspectSize() const {
  const auto video = videoTrack();
  return video ? video->naturalSize() : CGSizeZero;
}

CGSize LUMAVAssetTrack::transformSize() const {
  const CGSize size = aspectSize();
  const CGAffineTransform& t = transform();
  return {std::fabs(t.a * size.width + t.c * size.height), std::fabs(t.b * size.width + t.d * size.height)};
}

CGAffineTransform LUMAVAssetTrack::preferredTransform() const {
  const auto video = videoTrack();
  return video ? fixedPreferredTransform(*video) : LUMTrack::preferredTransform();
}

CMTime LUMAVAssetTrack::audioDuration() const {
  const auto audio = audioTrack();
  if (!audio) return internalDuration();
  const CMTime audioLength = durationOf(audio);
  const bool soundFits = CMTimeCompare(audioLength, durationOf(videoTrack())) <= 0;
  return CMTimeSubtract(CMTimeSubtract(soundFits ? audioLength : assetDuration(), leftTrimOffset()), rightTrimOffset());
}

CMTimeRange LUMAVAssetTrack::audioTrackGlobalTimeRange() const {
  return audioTrack() ? CMTimeRangeMake(start(), audioDuration()) : trackGlobalTimeRange();
}

CMTimeRange LUMAVAssetTrack::audioTrackInnerTimeRange() const {
  if (!audioTrack()) return trackGlobalTimeRange();
  const CMTime length = audioDuration();
  return CMTimeCompare(leftTrimOffset(), length) <= 0 ? CMTimeRangeMake(leftTrimOffset(), length) : kCMTimeRangeZero;
}

std::shared_ptr<LUMTrack> LUMAVAssetTrack::copyWithId(uint64_t objectId) const {
  auto copy = initWithAVAsset(asset_, objectId);
  if (copy) copySettingsTo(*copy);
  return copy;
}

void LUMAVAssetTrack::copySettingsTo(LUMAVAssetTrack& copy) const {
  copy.setLeftTrimOffset(leftTrimOffset());
  copy.setRightTrimOffset(rightTrimOffset());
  copy.setMuteAudioFlag(muteAudioFlag_);
  copy.setStart(start());
  copy.setTransform(transform());
  copy.setIgnoreRendering(ignoreRendering());
  copy.setScaleContext(scaleContext() ? scaleContext()->copy() : nullptr);
  copy.userInfo() = userInfo();
  copy.setCropData(cropData() ? cropData()->copy() : nullptr);
}

}  // namespace vidloom
