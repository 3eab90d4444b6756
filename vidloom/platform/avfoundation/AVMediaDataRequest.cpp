#include "vidloom/platform/avfoundation/AVMediaDataRequest.h"

#include <utility>

namespace vidloom {

void AVMediaDataRequest::schedule() {
  if (scheduled_ || closed_) return;
  scheduled_ = true;
  dispatch_async(queue_, [self = shared_from_this()] { self->run(); });
}

void AVMediaDataRequest::call() {
  const std::lock_guard lock(mutex_);
  schedule();
}

void AVMediaDataRequest::noteProgress() {
  const std::lock_guard lock(mutex_);
  progressed_ = true;
}

void AVMediaDataRequest::callLast() {
  const std::lock_guard lock(mutex_);
  last_ = true;
  schedule();
}

void AVMediaDataRequest::close() {
  // What the block holds may reach back here when it goes: not under the lock.
  std::function<void()> dropped;
  const std::lock_guard lock(mutex_);
  closed_ = true;
  if (!running_) dropped = std::exchange(block_, nullptr);
}

void AVMediaDataRequest::run() {
  std::function<void()> block;
  std::unique_lock lock(mutex_);
  if (closed_) return;
  block = std::exchange(block_, nullptr);
  running_ = true;
  progressed_ = false;
  const bool isLast = last_;
  lock.unlock();
  block();
  lock.lock();
  running_ = scheduled_ = false;
  closed_ = closed_ || isLast;
  if (!closed_) {
    block_ = std::move(block);
    if (progressed_ || last_) schedule();
  }
  lock.unlock();
}

}  // namespace vidloom
