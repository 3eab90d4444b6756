#include "vidloom/platform/avfoundation/AVVideoCompositionCoreAnimationTool.h"

namespace vidloom {

std::shared_ptr<AVVideoCompositionCoreAnimationTool>
AVVideoCompositionCoreAnimationTool::videoCompositionCoreAnimationToolWithPostProcessingAsVideoLayer(
    const std::shared_ptr<CALayer>& videoLayer, const std::shared_ptr<CALayer>& inLayer) {
  auto tool = std::make_shared<AVVideoCompositionCoreAnimationTool>(AVVideoCompositionCoreAnimationTool());
  tool->videoLayer_ = videoLayer;
  tool->animationLayer_ = inLayer;
  return tool;
}

}  // namespace vidloom
