#include "vidloom/platform/avfoundation/AVVideoCompositionInstruction.h"

#include <algorithm>

#include "vidloom/platform/avfoundation/AVAssetTrack.h"
#include "vidloom/platform/coremedia/CMTimeRational.h"

namespace vidloom {

namespace {

bool startsAfter(const CMTime& time, const CMTime& keyTime) { return CMTimeCompare(time, keyTime) < 0; }

double mixed(double from, double to, double fraction) { return from + (to - from) * fraction; }

float mixed(float from, float to, double fraction) {
  return static_cast<float>(mixed(static_cast<double>(from), static_cast<double>(to), fraction));
}

CGAffineTransform mixed(const CGAffineTransform& from, const CGAffineTransform& to, double fraction) {
  return {mixed(from.a, to.a, fraction), mixed(from.b, to.b, fraction),   mixed(from.c, to.c, fraction),
          mixed(from.d, to.d, fraction), mixed(from.tx, to.tx, fraction), mixed(from.ty, to.ty, fraction)};
}

template <class Key>
void setKey(std::vector<Key>& keys, Key key) {
  if (!detail::isNumber(key.time) || !detail::isNumber(key.duration) || key.duration.value < 0) return;
  auto after = std::upper_bound(keys.begin(), keys.end(), key.time,
                                [](const CMTime& time, const Key& other) { return startsAfter(time, other.time); });
  if (after != keys.begin() && CMTimeCompare(std::prev(after)->time, key.time) == 0) {
    *std::prev(after) = key;
  } else {
    keys.insert(after, key);
  }
}

template <class Key, class Value>
Value valueAt(const std::vector<Key>& keys, const CMTime& time, const Value& initial) {
  const auto after =
      std::upper_bound(keys.begin(), keys.end(), time, [](const CMTime& t, const Key& key) { return startsAfter(t, key.time); });
  if (after == keys.begin()) return initial;
  const Key& key = *std::prev(after);
  const CMTime elapsed = CMTimeSubtract(time, key.time);
  if (CMTimeCompare(elapsed, key.duration) >= 0) return key.to;
  return mixed(key.from, key.to, CMTimeGetSeconds(elapsed) / CMTimeGetSeconds(key.duration));
}

}  // namespace

std::shared_ptr<AVMutableVideoCompositionLayerInstruction>
AVMutableVideoCompositionLayerInstruction::videoCompositionLayerInstructionWithAssetTrack(
    const std::shared_ptr<AVAssetTrack>& track) {
  auto layer = std::make_shared<AVMutableVideoCompositionLayerInstruction>(AVMutableVideoCompositionLayerInstruction());
  if (track) layer->trackID_ = track->trackID();
  return layer;
}

void AVMutableVideoCompositionLayerInstruction::setTransform(const CGAffineTransform& transform, const CMTime& atTime) {
  setKey(transforms_, {atTime, transform, transform, kCMTimeZero});
}

void AVMutableVideoCompositionLayerInstruction::setOpacity(float opacity, const CMTime& atTime) {
  setKey(opacities_, {atTime, opacity, opacity, kCMTimeZero});
}

void AVMutableVideoCompositionLayerInstruction::setTransformRampFromStartTransform(const CGAffineTransform& startTransform,
                                                                                   const CGAffineTransform& toEndTransform,
                                                                                   const CMTimeRange& timeRange) {
  setKey(transforms_, {timeRange.start, startTransform, toEndTransform, timeRange.duration});
}

void AVMutableVideoCompositionLayerInstruction::setOpacityRampFromStartOpacity(float startOpacity, float toEndOpacity,
                                                                               const CMTimeRange& timeRange) {
  setKey(opacities_, {timeRange.start, startOpacity, toEndOpacity, timeRange.duration});
}

CGAffineTransform AVMutableVideoCompositionLayerInstruction::transformAt(const CMTime& time) const {
  return valueAt(transforms_, time, CGAffineTransformIdentity);
}

float AVMutableVideoCompositionLayerInstruction::opacityAt(const CMTime& time) const { return valueAt(opacities_, time, 1.0f); }

std::shared_ptr<AVMutableVideoCompositionInstruction> AVMutableVideoCompositionInstruction::videoCompositionInstruction() {
  return std::make_shared<AVMutableVideoCompositionInstruction>(AVMutableVideoCompositionInstruction());
}

std::optional<std::vector<CMPersistentTrackID>> AVMutableVideoCompositionInstruction::requiredSourceTrackIDs() const {
  std::vector<CMPersistentTrackID> ids;
  ids.reserve(layerInstructions_.size());
  for (const auto& layer : layerInstructions_) {
    if (layer) ids.push_back(layer->trackID());
  }
  std::sort(ids.begin(), ids.end());
  ids.erase(std::unique(ids.begin(), ids.end()), ids.end());
  return ids;
}

}  // namespace vidloom
