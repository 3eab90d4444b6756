#include "vidloom/platform/dispatch/DispatchQueue.h"

#include "vidloom/platform/foundation/NSLog.h"

namespace vidloom {

namespace {

thread_local const DispatchQueue::CurrentFrame* currentFrame = nullptr;

}  // namespace

DispatchQueue::CurrentFrame::CurrentFrame(const DispatchQueue& queue, bool barrier)
    : queue_(&queue), barrier_(barrier), outer_(currentFrame) {
  currentFrame = this;
}

DispatchQueue::CurrentFrame::~CurrentFrame() { currentFrame = outer_; }

const DispatchQueue::CurrentFrame* DispatchQueue::innermostFrame() const {
  const CurrentFrame* frame = currentFrame;
  while (frame != nullptr && frame->queue_ != this) frame = frame->outer_;
  return frame;
}

bool DispatchQueue::isHeldByCaller() const {
  const CurrentFrame* frame = innermostFrame();
  return frame != nullptr && (!attributes_.concurrent || frame->barrier_);
}

void DispatchQueue::stopForReentrantSync() const {
  NSLogAndAbort("dispatch_sync called on queue already owned by current thread: \"" + label_ + "\"");
}

}  // namespace vidloom
