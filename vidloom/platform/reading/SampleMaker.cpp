#include "vidloom/platform/reading/SampleMaker.h"

#include "vidloom/platform/reading/OutputColor.h"
#include "vidloom/platform/reading/VideoSamples.h"

namespace vidloom {

SampleMaker::SampleMaker(const AVMutableVideoComposition& composition, int width, int height, PictureColor color,
                         OSType pixelFormat)
    : width_(width),
      height_(height),
      color_(std::move(color)),
      pixelFormat_(pixelFormat),
      frameDuration_(composition.frameDuration()) {
  if (const auto& tool = composition.animationTool()) {
    tree_.emplace(*tool, composition.renderSize(), composition.renderScale(), color_);
  }
}

CMSampleBufferRef SampleMaker::fromLayers(const GatheredFrame& frame) {
  return sample(tree_ && frame.isPostProcessed ? postProcessed(frame.layers) : compose(frame.layers), frame.time);
}

CMSampleBufferRef SampleMaker::fromBuffer(const CVPixelBufferRef& buffer, const CMTime& time, bool isPostProcessed) {
  attachColor(buffer, color_);
  const bool fits = CVPixelBufferGetWidth(buffer) == static_cast<size_t>(width_) &&
                    CVPixelBufferGetHeight(buffer) == static_cast<size_t>(height_);
  if (tree_ && isPostProcessed) {
    const PictureRef picture = conformed(buffer);
    return picture ? sample(postProcessed({{picture, CGSizeMake(width_, height_)}}), time) : nullptr;
  }
  if (fits && CVPixelBufferGetPixelFormatType(buffer) == pixelFormat_ && hasMatrix(buffer, color_)) {
    return videoSample(buffer, time, frameDuration_);
  }
  return sample(conformed(buffer), time);
}

PictureRef SampleMaker::conformed(const CVPixelBufferRef& buffer) {
  const PictureRef picture = CVPixelBufferCopyPicture(buffer);
  if (!picture || (picture->color == color_ && picture->width == width_ && picture->height == height_)) return picture;
  const CGSize size = CGSizeMake(picture->width, picture->height);
  return compose({{picture, size, FrameGatherer::fitting(size, width_, height_)}});
}

PictureRef SampleMaker::postProcessed(std::vector<PictureLayer> layers) {
  if (tree_->keepsFrame()) {
    layers.insert(layers.end(), tree_->above().begin(), tree_->above().end());
    return compose(layers);
  }
  const PictureRef frame = compose(layers);
  return frame ? compose(tree_->around(frame)) : nullptr;
}

CMSampleBufferRef SampleMaker::sample(const PictureRef& picture, const CMTime& time) const {
  return picture ? videoSample(picture, pixelFormat_, time, frameDuration_) : nullptr;
}

}  // namespace vidloom
