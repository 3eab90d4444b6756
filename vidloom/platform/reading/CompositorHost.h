// The custom compositor's side of a frame server.
#pragma once

#include <memory>
#include <optional>

#include "vidloom/platform/avfoundation/AVVideoCompositing.h"
#include "vidloom/platform/dispatch/dispatch.h"
#include "vidloom/platform/reading/CompositionRequest.h"
#include "vidloom/platform/reading/FrameGatherer.h"
#include "vidloom/platform/reading/RenderContext.h"

namespace vidloom {

/// Turns gathered frames into requests and hands them to a custom compositor, one after the other on a queue of its own.
class CompositorHost : public std::enable_shared_from_this<CompositorHost> {
 public:
  /// Null with an error where the compositor's attributes name no pixel format or one that cannot be had.
  static std::shared_ptr<CompositorHost> make(std::shared_ptr<AVVideoCompositing> compositor, int width, int height,
                                              float renderScale, const PictureColor& color, std::optional<NSError>* error);

  /// Starts the request of that frame soon, unless `isWanted` says no by then. The answer comes on any thread.
  void start(GatheredFrame frame, std::function<bool()> isWanted, CompositionRequest::Receiver receiver);
  /// Tells the compositor, on a queue of the library, that nothing is wanted any more.
  void cancelAll();

 private:
  CompositorHost(std::shared_ptr<AVVideoCompositing> compositor, OSType sourceFormat, std::shared_ptr<const RenderContext> context,
                 PictureColor color);
  /// Null where memory has run out.
  CVPixelBufferRef sourceBuffer(const SourcePicture& source);
  void startOnQueue(GatheredFrame& frame, CompositionRequest::Receiver receiver);

  const std::shared_ptr<AVVideoCompositing> compositor_;
  const OSType sourceFormat_;
  const std::shared_ptr<const RenderContext> context_;
  const PictureColor color_;
  const dispatch_queue_t queue_;
  LayerCompositor adapter_;    ///< brings sources to square pixels and the output's matrix; used on queue_
  bool knowsContext_ = false;  ///< used on queue_
};

}  // namespace vidloom
