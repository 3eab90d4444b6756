// Draws the frames of a timeline: a ready-made host for the custom compositor.
#pragma once

#include <memory>
#include <mutex>
#include <vector>

#include "vidloom/compositing/LUMAVAsyncDrawDelegate.h"

namespace vidloom {

class AVVideoCompositionRenderContext;
class LUMComposition;
class SnapshotPainter;
class TimelineSnapshot;

/// Over black, every track that is visible at a frame's time (start <= time < start + duration, exactly), later ones over earlier
/// ones: media files, bitmaps, pixel buffers, image-processing images and texts, cropped (see TrackCrop.h) and then transformed.
/// Blends in gamma-encoded Y'CbCr of the output's matrix (see CVFrameComposer).
///
/// It draws what the timeline was when it was taken: take it again, on the thread that edits it, for each build and whenever a
/// redraw is to show an edit. Everything else may be called on any thread; requests are drawn on a queue of the library.
class TimelineDrawer : public LUMAVAsyncDrawDelegate, public std::enable_shared_from_this<TimelineDrawer> {
 public:
  static std::shared_ptr<TimelineDrawer> init();

  /// Frames begun from now on show this timeline as it is now; null shows nothing.
  void takeTimeline(const std::shared_ptr<LUMComposition>& timeline);

  void drawAsync(const std::shared_ptr<AVAsynchronousVideoCompositionRequest>& request,
                 const std::shared_ptr<LUMAVRoutePipeline>& pipeline) override;

 protected:
  TimelineDrawer();

 private:
  /// Null where memory has run out.
  std::shared_ptr<SnapshotPainter> painterFor(const std::shared_ptr<const AVVideoCompositionRenderContext>& context);

  std::mutex mutex_;
  std::shared_ptr<const TimelineSnapshot> snapshot_;
  std::vector<std::shared_ptr<SnapshotPainter>> painters_;  ///< of the snapshot, one an output
};

}  // namespace vidloom
