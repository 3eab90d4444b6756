// The compositor of video compositions whose frames a filter handler makes.
#pragma once

#include "vidloom/platform/avfoundation/AVVideoComposition.h"
#include "vidloom/platform/reading/RenderContext.h"

namespace vidloom {

/// Wraps each request into one for the handler of its instruction. A source image that comes back as it is is passed on as the
/// picture that was decoded. Several requests are with the handler at a time.
class FilterCompositor : public AVVideoCompositing {
 public:
  static bool isNeededFor(const AVMutableVideoComposition& composition);

  NSDictionary sourcePixelBufferAttributes() const override { return attributes(); }
  NSDictionary requiredPixelBufferAttributesForRenderContext() const override { return attributes(); }
  void renderContextChanged(const std::shared_ptr<const AVVideoCompositionRenderContext>& context) override;
  void startVideoCompositionRequest(const std::shared_ptr<AVAsynchronousVideoCompositionRequest>& request) override;

 private:
  class Request;
  static NSDictionary attributes();
  PictureColor color_;  ///< of the output; used on the queue that starts requests
};

}  // namespace vidloom
