// Pictures that are drawn over the composed frames of an export.
#pragma once

#include <memory>

#include "vidloom/platform/quartzcore/CALayer.h"

namespace vidloom {

/// A tree of layers in which one stands for the composed frame. Each frame of an instruction with enablePostProcessing is put into
/// the video layer and the tree is drawn; what it leaves free is black. The animation layer's superlayer is the frame: in units of
/// the render size, origin at its bottom left, y up. For offline rendering: readers honour it, players refuse it. The tree is
/// read once, when reading starts.
class AVVideoCompositionCoreAnimationTool {
 public:
  /// `videoLayer` is `inLayer` or lies somewhere below it; where it does not, or is null, the frame lies whole beneath the tree.
  static std::shared_ptr<AVVideoCompositionCoreAnimationTool> videoCompositionCoreAnimationToolWithPostProcessingAsVideoLayer(
      const std::shared_ptr<CALayer>& videoLayer, const std::shared_ptr<CALayer>& inLayer);

  const std::shared_ptr<CALayer>& videoLayer() const { return videoLayer_; }
  const std::shared_ptr<CALayer>& animationLayer() const { return animationLayer_; }

 private:
  AVVideoCompositionCoreAnimationTool() = default;
  std::shared_ptr<CALayer> videoLayer_, animationLayer_;
};

}  // namespace vidloom
