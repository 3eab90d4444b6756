// The last step of a composed frame: its sample.
#pragma once

#include "vidloom/platform/avfoundation/AVMediaFormat.h"
#include "vidloom/platform/coremedia/CMSampleBuffer.h"
#include "vidloom/platform/reading/FrameGatherer.h"
#include "vidloom/platform/reading/VideoLayerTree.h"

namespace vidloom {

/// Brings frames, from either kind of compositor, to the size, colour and pixel format of an output. Nothing is copied where a
/// frame is as the output wants it. One thread at a time.
class SampleMaker {
 public:
  SampleMaker(const AVMutableVideoComposition& composition, int width, int height, PictureColor color, OSType pixelFormat);

  /// The built-in compositor's: draws the frame's layers. Null where memory has run out.
  CMSampleBufferRef fromLayers(const GatheredFrame& frame);
  /// A custom compositor's. A buffer of another size is fitted into the middle of the output. Null where memory has run out.
  CMSampleBufferRef fromBuffer(const CVPixelBufferRef& buffer, const CMTime& time, bool isPostProcessed);

 private:
  PictureRef compose(const std::vector<PictureLayer>& layers) { return compositor_.compose(layers, width_, height_, color_); }
  PictureRef postProcessed(std::vector<PictureLayer> layers);
  CMSampleBufferRef sample(const PictureRef& picture, const CMTime& time) const;
  PictureRef conformed(const CVPixelBufferRef& buffer);

  const int width_, height_;
  const PictureColor color_;
  const OSType pixelFormat_;
  const CMTime frameDuration_;
  std::optional<VideoLayerTree> tree_;
  LayerCompositor compositor_;
};

}  // namespace vidloom
