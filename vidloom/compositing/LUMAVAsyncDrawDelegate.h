// The host's side of frame drawing.
#pragma once

#include <memory>

namespace vidloom {

class AVAsynchronousVideoCompositionRequest;
class LUMAVRoutePipeline;

class LUMAVAsyncDrawDelegate {
 public:
  virtual ~LUMAVAsyncDrawDelegate() = default;
  /// Called on the compositor's queue, once a frame. Must return soon and must finish the request itself, at once or later, from
  /// any thread; the next request may come before. The pipeline tells which source frame belongs to which track.
  virtual void drawAsync(const std::shared_ptr<AVAsynchronousVideoCompositionRequest>& request,
                         const std::shared_ptr<LUMAVRoutePipeline>& pipeline) = 0;
};

}  // namespace vidloom
