// A count of work under way.
#pragma once

#include <condition_variable>
#include <mutex>
#include <vector>

#include "vidloom/platform/dispatch/dispatch.h"

namespace vidloom {

/// May be destroyed while entered: what waits to be notified is then dropped.
class DispatchGroup : public std::enable_shared_from_this<DispatchGroup> {
 public:
  void enter();
  void leave();
  void notify(const dispatch_queue_t& queue, dispatch_block_t block);
  /// True when the count became zero in time.
  bool wait(dispatch_time_t timeout);

 private:
  struct Notification {
    dispatch_queue_t queue;
    dispatch_block_t block;
  };

  std::mutex mutex_;
  std::condition_variable emptied_;
  uint64_t count_ = 0;
  uint64_t emptiedCount_ = 0;  ///< a wait ends although the group was entered again since
  std::vector<Notification> notifications_;
};

}  // namespace vidloom
