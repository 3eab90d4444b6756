// The layer tree around the frames of an export, ready to be drawn.
#pragma once

#include <memory>
#include <vector>

#include "vidloom/platform/avfoundation/AVVideoCompositionCoreAnimationTool.h"
#include "vidloom/platform/pixels/LayerCompositor.h"

namespace vidloom {

/// What an AVVideoCompositionCoreAnimationTool held when this was made; its pictures are converted once.
class VideoLayerTree {
 public:
  /// For frames of `renderSize` x `renderScale`, in that colour. Pictures for which there is no memory are left out.
  VideoLayerTree(const AVVideoCompositionCoreAnimationTool& tool, const CGSize& renderSize, float renderScale, PictureColor color);

  /// True where the frame, as it stands, lies beneath everything that is visible: its own layers may then be drawn in one go with
  /// above().
  bool keepsFrame() const { return keepsFrame_; }
  const std::vector<PictureLayer>& above() const { return above_; }
  /// All that is to be drawn for a composed frame.
  std::vector<PictureLayer> around(const PictureRef& frame) const;

 private:
  struct Place;
  void visit(const CALayer& layer, const Place& place);

  const CALayer* const videoLayer_;
  const CGSize frameSize_;  ///< in pixels
  const PictureColor color_;
  std::vector<PictureLayer> below_, above_;
  bool hasFrame_ = false;  ///< what is visited from now on lies above the frame
  bool keepsFrame_ = false;
  CGAffineTransform frameTransform_ = CGAffineTransformIdentity;
  double frameOpacity_ = 1;
};

}  // namespace vidloom
