#include "vidloom/platform/dispatch/DispatchGroup.h"

#include "vidloom/platform/dispatch/TimedWait.h"
#include "vidloom/platform/foundation/NSLog.h"

namespace vidloom {

void DispatchGroup::enter() {
  const std::lock_guard lock(mutex_);
  ++count_;
}

void DispatchGroup::leave() {
  std::vector<Notification> due;
  {
    const std::lock_guard lock(mutex_);
    if (count_ == 0) NSLogAndAbort("Unbalanced call to dispatch_group_leave()");
    if (--count_ != 0) return;
    ++emptiedCount_;
    due.swap(notifications_);
    emptied_.notify_all();
  }
  for (Notification& notification : due) dispatch_async(notification.queue, std::move(notification.block));
}

void DispatchGroup::notify(const dispatch_queue_t& queue, dispatch_block_t block) {
  {
    const std::lock_guard lock(mutex_);
    if (count_ != 0) {
      notifications_.push_back({queue, std::move(block)});
      return;
    }
  }
  dispatch_async(queue, std::move(block));
}

bool DispatchGroup::wait(dispatch_time_t timeout) {
  std::unique_lock lock(mutex_);
  const uint64_t before = emptiedCount_;
  return waitUntil(weak_from_this(), lock, mutex_, emptied_, timeout, [&] { return count_ == 0 || emptiedCount_ != before; });
}

}  // namespace vidloom
