#include "vidloom/platform/dispatch/WorkerQueue.h"

#include "vidloom/platform/dispatch/WorkerPool.h"

namespace vidloom {

WorkerQueue::WorkerQueue(std::string label, const dispatch_queue_attr_t& attributes, Barriers barriers)
    : DispatchQueue(std::move(label), attributes),
      concurrent_(attributes.concurrent),
      honoursBarriers_(attributes.concurrent && barriers == Barriers::honoured) {}

void WorkerQueue::async(dispatch_block_t block, bool barrier) {
  Item next;
  {
    const std::lock_guard lock(mutex_);
    items_.push_back({std::move(block), nullptr, barrier && honoursBarriers_});
    if (!takeNext(next)) return;
  }
  launch(std::move(next));
}

void WorkerQueue::sync(const dispatch_block_t& block, bool barrier) {
  barrier = barrier && honoursBarriers_;
  if (isHeldByCaller() || (barrier && isCurrent())) stopForReentrantSync();
  const auto keptAlive = shared_from_this();
  {
    std::unique_lock lock(mutex_);
    if (items_.empty() && mayStart(barrier)) {
      noteStarted(barrier);
    } else {
      Waiter waiter;
      items_.push_back({nullptr, &waiter, barrier});
      waiter.turn.wait(lock, [&] { return waiter.granted; });
    }
  }
  {
    const CurrentFrame frame(*this, barrier);
    block();
  }
  {
    const std::lock_guard lock(mutex_);
    noteFinished(barrier);
    if (items_.empty()) return;
  }
  launchAll();
}

bool WorkerQueue::mayStart(bool barrier) const {
  if (!concurrent_ || barrier) return running_ == 0;
  return !barrierRunning_;
}

void WorkerQueue::noteStarted(bool barrier) {
  ++running_;
  barrierRunning_ = barrier;
}

void WorkerQueue::noteFinished(bool barrier) {
  --running_;
  if (barrier) barrierRunning_ = false;
}

bool WorkerQueue::takeNext(Item& next) {
  while (!items_.empty() && mayStart(items_.front().barrier)) {
    Item& front = items_.front();
    noteStarted(front.barrier);
    if (front.waiter == nullptr) {
      next = std::move(front);
      items_.pop_front();
      return true;
    }
    front.waiter->granted = true;
    front.waiter->turn.notify_one();
    items_.pop_front();
  }
  return false;
}

void WorkerQueue::launchAll() {
  while (true) {
    Item next;
    {
      const std::lock_guard lock(mutex_);
      if (!takeNext(next)) return;
    }
    launch(std::move(next));
  }
}

void WorkerQueue::launch(Item item) {
  WorkerPool::shared().submit(
      [self = shared_from_this(), item = std::move(item)]() mutable { static_cast<WorkerQueue&>(*self).drain(std::move(item)); });
}

void WorkerQueue::drain(Item item) {
  WorkerPool::nameThread(label());
  while (true) {
    {
      const CurrentFrame frame(*this, item.barrier);
      item.block();
      item.block = nullptr;
    }
    {
      const std::lock_guard lock(mutex_);
      noteFinished(item.barrier);
      if (!takeNext(item)) return;
    }
    // What a barrier held back may start together with the block that this thread goes on with.
    if (concurrent_) launchAll();
  }
}

}  // namespace vidloom
