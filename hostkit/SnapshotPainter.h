// Draws the frames of one snapshot for one output.
#pragma once

#include <map>
#include <memory>
#include <mutex>

#include "hostkit/TimelineSnapshot.h"
#include "vidloom/compositing/LUMAVRoutePipeline.h"
#include "vidloom/platform/avfoundation/AVVideoCompositing.h"

namespace vidloom {

/// Any thread; frames may be drawn side by side.
class SnapshotPainter {
 public:
  /// Null where memory has run out.
  static std::shared_ptr<SnapshotPainter> make(std::shared_ptr<const TimelineSnapshot> snapshot,
                                               const std::shared_ptr<const AVVideoCompositionRenderContext>& context);

  /// Whether it was made for that context.
  bool isFor(const std::shared_ptr<const AVVideoCompositionRenderContext>& context) const;
  bool isOrphan() const { return context_.expired(); }

  /// What is visible at the request's time; media whose frame is missing there is left out. Null where memory has run out.
  CVPixelBufferRef draw(const AVAsynchronousVideoCompositionRequest& request, const LUMAVRoutePipeline& pipeline);

 private:
  SnapshotPainter() = default;
  /// The layer in pixels of the output; nullopt where memory has run out.
  std::optional<CVFrameLayer> stillLayer(const SnapshotTrack& track);
  CVFrameLayer scaledLayer(const SnapshotTrack& track) const;

  std::shared_ptr<const TimelineSnapshot> snapshot_;
  std::weak_ptr<const AVVideoCompositionRenderContext> context_;
  double scale_ = 1;
  std::shared_ptr<CVFrameComposer> composer_;
  std::mutex mutex_;
  std::map<const SnapshotTrack*, CVFrameLayer> stills_;  ///< those that were shown, ready to be drawn
};

}  // namespace vidloom
