// A block that is asked for samples again and again.
#pragma once

#include <functional>
#include <memory>
#include <mutex>

#include "vidloom/platform/dispatch/dispatch.h"

namespace vidloom {

/// Calls a block on a queue, one call at a time, as long as each call brings something; once more when nothing can be brought any
/// more; never after it was closed. Any thread.
class AVMediaDataRequest : public std::enable_shared_from_this<AVMediaDataRequest> {
 public:
  AVMediaDataRequest(dispatch_queue_t queue, std::function<void()> block) : queue_(std::move(queue)), block_(std::move(block)) {}

  /// Calls the block soon.
  void call();
  /// Something was brought: the block is called again when it returns.
  void noteProgress();
  /// Nothing can be brought any more: calls the block one last time.
  void callLast();
  /// No further call begins.
  void close();

 private:
  void schedule();
  void run();

  const dispatch_queue_t queue_;
  std::mutex mutex_;
  std::function<void()> block_;  ///< not here while it runs
  bool scheduled_ = false;       ///< a call is waiting or running
  bool running_ = false;
  bool progressed_ = false;
  bool last_ = false;
  bool closed_ = false;
};

}  // namespace vidloom
