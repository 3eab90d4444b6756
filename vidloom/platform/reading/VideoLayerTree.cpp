#include "vidloom/platform/reading/VideoLayerTree.h"

#include <algorithm>
#include <cmath>

namespace vidloom {

namespace {

CGSize sizeOf(const Picture& picture) { return CGSizeMake(picture.width, picture.height); }

PictureRef pictureIn(const CALayerContents& contents, const PictureColor& color) {
  if (const auto* image = std::get_if<CGImageRef>(&contents)) return CGImageCopyPicture(*image, color);
  if (const auto* buffer = std::get_if<CVPixelBufferRef>(&contents)) return CVPixelBufferCopyPicture(*buffer, CVPictureAlpha::keep);
  return nullptr;
}

bool isBelow(std::shared_ptr<CALayer> layer, const std::shared_ptr<CALayer>& top) {
  while (layer && layer != top) layer = layer->superlayer();
  return layer != nullptr;
}

/// Turns y around within the rectangle.
CGAffineTransform flipIn(const CGRect& rect) { return {1, 0, 0, -1, 0, 2 * rect.origin.y + rect.size.height}; }

/// Takes away what sums of fractions leave behind.
double settled(double value) {
  constexpr double step = 0x1p-24;
  return std::round(value / step) * step;
}

CGAffineTransform settled(const CGAffineTransform& map) {
  return {settled(map.a), settled(map.b), settled(map.c), settled(map.d), settled(map.tx), settled(map.ty)};
}

}  // namespace

/// Where a layer lies: from its coordinates to pixels of the frame.
struct VideoLayerTree::Place {
  CGAffineTransform toPixels;
  double opacity;
  bool isYDown;

  /// From a picture of that size (y down), stretched over the layer's bounds.
  CGAffineTransform ofContents(const CGRect& bounds, const CGSize& size) const {
    const double x = bounds.size.width / size.width, y = bounds.size.height / size.height;
    CGAffineTransform stretch{x, 0, 0, y, bounds.origin.x, bounds.origin.y};
    if (!isYDown) stretch = CGAffineTransformConcat(stretch, flipIn(bounds));
    return settled(CGAffineTransformConcat(stretch, toPixels));
  }
};

VideoLayerTree::VideoLayerTree(const AVVideoCompositionCoreAnimationTool& tool, const CGSize& renderSize, float renderScale,
                               PictureColor color)
    : videoLayer_(tool.videoLayer().get()),
      frameSize_(
          CGSizeMake(std::round(renderSize.width * double{renderScale}), std::round(renderSize.height * double{renderScale}))),
      color_(std::move(color)) {
  const bool isInTree = isBelow(tool.videoLayer(), tool.animationLayer());
  hasFrame_ = !isInTree;
  frameOpacity_ = isInTree ? 0 : 1;
  const double scale{renderScale};
  if (tool.animationLayer()) visit(*tool.animationLayer(), {{scale, 0, 0, -scale, 0, frameSize_.height}, 1, false});
  keepsFrame_ = frameTransform_ == CGAffineTransformIdentity && frameOpacity_ == 1;
}

void VideoLayerTree::visit(const CALayer& layer, const Place& outer) {
  const double opacity = outer.opacity * std::clamp(double{layer.opacity()}, 0.0, 1.0);
  Place place{CGAffineTransformConcat(layer.transformToSuperlayer(), outer.toPixels), opacity, outer.isYDown};
  if (layer.isHidden() || opacity == 0) return;
  const CGRect& bounds = layer.bounds();
  if (&layer == videoLayer_) {
    hasFrame_ = true;
    frameTransform_ = place.ofContents(bounds, frameSize_);
    frameOpacity_ = opacity;
  }
  const PictureRef picture = &layer == videoLayer_ ? nullptr : pictureIn(layer.contents(), color_);
  if (picture && bounds.size.width > 0 && bounds.size.height > 0) {
    (hasFrame_ ? above_ : below_).push_back({picture, sizeOf(*picture), place.ofContents(bounds, sizeOf(*picture)), opacity});
  }
  if (layer.isGeometryFlipped()) {
    place.toPixels = CGAffineTransformConcat(flipIn(bounds), place.toPixels);
    place.isYDown = !place.isYDown;
  }
  for (const auto& sublayer : layer.sublayers()) visit(*sublayer, place);
}

std::vector<PictureLayer> VideoLayerTree::around(const PictureRef& frame) const {
  std::vector<PictureLayer> layers = keepsFrame_ ? std::vector<PictureLayer>{} : below_;
  layers.push_back({frame, sizeOf(*frame), frameTransform_, frameOpacity_});
  layers.insert(layers.end(), above_.begin(), above_.end());
  return layers;
}

}  // namespace vidloom
