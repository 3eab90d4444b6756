#include "vidloom/platform/dispatch/DispatchSemaphore.h"

#include "vidloom/platform/dispatch/TimedWait.h"

namespace vidloom {

void DispatchSemaphore::signal() {
  const std::lock_guard lock(mutex_);
  ++count_;
  signalled_.notify_one();
}

bool DispatchSemaphore::wait(dispatch_time_t timeout) {
  std::unique_lock lock(mutex_);
  if (!waitUntil(weak_from_this(), lock, mutex_, signalled_, timeout, [&] { return count_ > 0; })) return false;
  --count_;
  return true;
}

}  // namespace vidloom
