#include "hostkit/TimelineDrawer.h"

#include "hostkit/SnapshotPainter.h"
#include "vidloom/platform/avfoundation/AVError.h"
#include "vidloom/platform/dispatch/dispatch.h"
#include "vidloom/platform/foundation/NSLog.h"

namespace vidloom {
namespace {

NSError memoryError(const CMTime& time) {
  return AVMakeError(AVErrorOutOfMemory, NSStringWithFormat("No memory to draw the frame at %.6f s", CMTimeGetSeconds(time)));
}

}  // namespace

TimelineDrawer::TimelineDrawer() : snapshot_(TimelineSnapshot::ofTimeline(nullptr)) {}

std::shared_ptr<TimelineDrawer> TimelineDrawer::init() {
  struct Concrete : TimelineDrawer {};
  return std::make_shared<Concrete>();
}

void TimelineDrawer::takeTimeline(const std::shared_ptr<LUMComposition>& timeline) {
  auto snapshot = TimelineSnapshot::ofTimeline(timeline);
  std::vector<std::shared_ptr<SnapshotPainter>> old;
  const std::lock_guard lock(mutex_);
  snapshot_.swap(snapshot);
  painters_.swap(old);
}

void TimelineDrawer::drawAsync(const std::shared_ptr<AVAsynchronousVideoCompositionRequest>& request,
                               const std::shared_ptr<LUMAVRoutePipeline>& pipeline) {
  // What is shown is decided here, so that frames follow the timelines in the order in which they were taken.
  const auto painter = painterFor(request->renderContext());
  dispatch_async(dispatch_get_global_queue(QOS_CLASS_USER_INITIATED), [painter, request, pipeline] {
    const CVPixelBufferRef frame = painter ? painter->draw(*request, *pipeline) : nullptr;
    if (frame) {
      request->finishWithComposedVideoFrame(frame);
    } else {
      request->finishWithError(memoryError(request->compositionTime()));
    }
  });
}

std::shared_ptr<SnapshotPainter> TimelineDrawer::painterFor(const std::shared_ptr<const AVVideoCompositionRenderContext>& context) {
  const std::lock_guard lock(mutex_);
  std::erase_if(painters_, [](const auto& painter) { return painter->isOrphan(); });
  for (const auto& painter : painters_) {
    if (painter->isFor(context)) return painter;
  }
  auto painter = SnapshotPainter::make(snapshot_, context);
  if (painter) painters_.push_back(painter);
  return painter;
}

}  // namespace vidloom
