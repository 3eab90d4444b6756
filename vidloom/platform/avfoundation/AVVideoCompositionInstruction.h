// What is shown during a stretch of time: the interface, and the built-in kind made of layers.
#pragma once

#include <memory>
#include <optional>
#include <vector>

#include "vidloom/platform/avfoundation/AVMediaFormat.h"
#include "vidloom/platform/coregraphics/CGGeometry.h"
#include "vidloom/platform/coremedia/CMTimeRange.h"

namespace vidloom {

class AVAssetTrack;

/// Read while rendering, on queues of the platform: what the operations give must not change then.
class AVVideoCompositionInstruction {
 public:
  virtual ~AVVideoCompositionInstruction() = default;
  virtual CMTimeRange timeRange() const = 0;
  virtual bool enablePostProcessing() const { return true; }
  /// True: no composed frame is reused for another time.
  virtual bool containsTweening() const { return true; }
  /// Nullopt: every video track; an empty list: none.
  virtual std::optional<std::vector<CMPersistentTrackID>> requiredSourceTrackIDs() const { return std::nullopt; }
  /// Not kCMPersistentTrackID_Invalid: the compositor is skipped and that track's frame shown.
  virtual CMPersistentTrackID passthroughTrackID() const { return kCMPersistentTrackID_Invalid; }
};

/// Where and how strongly a composition track is drawn, by keys in composition time. A key holds from its own time until the next;
/// before the first: identity and opacity 1.
class AVMutableVideoCompositionLayerInstruction {
 public:
  static std::shared_ptr<AVMutableVideoCompositionLayerInstruction> videoCompositionLayerInstructionWithAssetTrack(
      const std::shared_ptr<AVAssetTrack>& track);

  CMPersistentTrackID trackID() const { return trackID_; }
  void setTrackID(CMPersistentTrackID trackID) { trackID_ = trackID; }
  /// Keys with a time that is not numeric are ignored. The same time set twice: the later call wins.
  void setTransform(const CGAffineTransform& transform, const CMTime& atTime);
  void setOpacity(float opacity, const CMTime& atTime);
  /// Linear from start to end over the range.
  void setTransformRampFromStartTransform(const CGAffineTransform& startTransform, const CGAffineTransform& toEndTransform,
                                          const CMTimeRange& timeRange);
  void setOpacityRampFromStartOpacity(float startOpacity, float toEndOpacity, const CMTimeRange& timeRange);

  CGAffineTransform transformAt(const CMTime& time) const;
  float opacityAt(const CMTime& time) const;

 private:
  template <class Value>
  struct Key {
    CMTime time;
    Value from, to;
    CMTime duration;  ///< zero: the value is held
  };
  AVMutableVideoCompositionLayerInstruction() = default;
  CMPersistentTrackID trackID_ = kCMPersistentTrackID_Invalid;
  std::vector<Key<CGAffineTransform>> transforms_;
  std::vector<Key<float>> opacities_;
};

/// The built-in instruction: a stack of layers, the first on top, over a black background.
class AVMutableVideoCompositionInstruction : public AVVideoCompositionInstruction {
 public:
  static std::shared_ptr<AVMutableVideoCompositionInstruction> videoCompositionInstruction();

  CMTimeRange timeRange() const override { return timeRange_; }
  void setTimeRange(const CMTimeRange& timeRange) { timeRange_ = timeRange; }
  const std::vector<std::shared_ptr<AVMutableVideoCompositionLayerInstruction>>& layerInstructions() const {
    return layerInstructions_;
  }
  void setLayerInstructions(std::vector<std::shared_ptr<AVMutableVideoCompositionLayerInstruction>> layers) {
    layerInstructions_ = std::move(layers);
  }
  bool enablePostProcessing() const override { return enablePostProcessing_; }
  void setEnablePostProcessing(bool enable) { enablePostProcessing_ = enable; }
  /// The tracks of the layers.
  std::optional<std::vector<CMPersistentTrackID>> requiredSourceTrackIDs() const override;

 private:
  AVMutableVideoCompositionInstruction() = default;
  CMTimeRange timeRange_ = kCMTimeRangeInvalid;
  bool enablePostProcessing_ = true;
  std::vector<std::shared_ptr<AVMutableVideoCompositionLayerInstruction>> layerInstructions_;
};

}  // namespace vidloom
