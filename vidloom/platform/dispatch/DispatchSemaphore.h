#pragma once

#include <condition_variable>
#include <mutex>

#include "vidloom/platform/dispatch/dispatch.h"

namespace vidloom {

/// A counting semaphore.
class DispatchSemaphore : public std::enable_shared_from_this<DispatchSemaphore> {
 public:
  explicit DispatchSemaphore(long value) : count_(value) {}
  void signal();
  /// True when signalled in time.
  bool wait(dispatch_time_t timeout);

 private:
  std::mutex mutex_;
  std::condition_variable signalled_;
  long count_;
};

}  // namespace vidloom
