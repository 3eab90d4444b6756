// How the frames of a composition are made.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "vidloom/platform/avfoundation/AVAsynchronousCIImageFilteringRequest.h"
#include "vidloom/platform/avfoundation/AVVideoCompositing.h"
#include "vidloom/platform/coregraphics/CGGeometry.h"
#include "vidloom/platform/coremedia/CMTimeRange.h"

namespace vidloom {

class AVAsset;
class AVAssetTrack;
class AVVideoCompositionCoreAnimationTool;

/// Frame size, frame rate and instructions. The mutable class is the only one: readers and players take a copy when they are given
/// one; the instruction objects in the copy stay the same ones.
class AVMutableVideoComposition {
 public:
  static std::shared_ptr<AVMutableVideoComposition> videoComposition();
  /// One whose frames `applyingCIFiltersWithHandler` makes out of those of the asset's first enabled video track. Frame duration
  /// and render size are that track's (upright); they may be replaced. The instruction is private: leave it alone.
  static std::shared_ptr<AVMutableVideoComposition> videoCompositionWithAsset(
      const std::shared_ptr<AVAsset>& asset, AVCIImageFilteringHandler applyingCIFiltersWithHandler);
  std::shared_ptr<AVMutableVideoComposition> copy() const;

  const CMTime& frameDuration() const { return frameDuration_; }
  void setFrameDuration(const CMTime& frameDuration) { frameDuration_ = frameDuration; }
  const CGSize& renderSize() const { return renderSize_; }
  void setRenderSize(const CGSize& renderSize) { renderSize_ = renderSize; }
  float renderScale() const { return renderScale_; }
  void setRenderScale(float renderScale) { renderScale_ = renderScale; }
  /// In order of time; each begins where the one before ends. Outside every instruction frames are black.
  const std::vector<std::shared_ptr<AVVideoCompositionInstruction>>& instructions() const { return instructions_; }
  void setInstructions(std::vector<std::shared_ptr<AVVideoCompositionInstruction>> instructions) {
    instructions_ = std::move(instructions);
  }
  /// Empty: the built-in compositor, which draws layer instructions.
  const AVVideoCompositingClass& customVideoCompositorClass() const { return customVideoCompositorClass_; }
  void setCustomVideoCompositorClass(AVVideoCompositingClass compositorClass) {
    customVideoCompositorClass_ = std::move(compositorClass);
  }
  const std::shared_ptr<AVVideoCompositionCoreAnimationTool>& animationTool() const { return animationTool_; }
  void setAnimationTool(std::shared_ptr<AVVideoCompositionCoreAnimationTool> tool) { animationTool_ = std::move(tool); }
  /// Colour tags (AVVideoColorPrimaries_... and so on); nullopt: those of the sources where all agree, else BT.709.
  const std::optional<std::string>& colorPrimaries() const { return colorPrimaries_; }
  void setColorPrimaries(std::optional<std::string> value) { colorPrimaries_ = std::move(value); }
  const std::optional<std::string>& colorYCbCrMatrix() const { return colorYCbCrMatrix_; }
  void setColorYCbCrMatrix(std::optional<std::string> value) { colorYCbCrMatrix_ = std::move(value); }
  const std::optional<std::string>& colorTransferFunction() const { return colorTransferFunction_; }
  void setColorTransferFunction(std::optional<std::string> value) { colorTransferFunction_ = std::move(value); }

 private:
  AVMutableVideoComposition() = default;
  CMTime frameDuration_ = kCMTimeZero;
  CGSize renderSize_;
  float renderScale_ = 1.0f;
  std::vector<std::shared_ptr<AVVideoCompositionInstruction>> instructions_;
  AVVideoCompositingClass customVideoCompositorClass_;
  std::shared_ptr<AVVideoCompositionCoreAnimationTool> animationTool_;
  std::optional<std::string> colorPrimaries_, colorYCbCrMatrix_, colorTransferFunction_;
};

}  // namespace vidloom
