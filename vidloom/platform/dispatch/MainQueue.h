// The queue whose blocks run where the host drains it.
#pragma once

#include <condition_variable>
#include <deque>
#include <mutex>
#include <thread>

#include "vidloom/platform/dispatch/DispatchQueue.h"

namespace vidloom {

class MainQueue : public DispatchQueue {
 public:
  /// Lives until the process ends.
  static const std::shared_ptr<MainQueue>& shared();
  MainQueue() : DispatchQueue("vidloom.main-thread", DISPATCH_QUEUE_SERIAL) {}

  void async(dispatch_block_t block, bool barrier) override;
  void sync(const dispatch_block_t& block, bool barrier) override;

  // See RunLoop.
  void run();
  bool runUntil(const std::function<bool()>& predicate, uint64_t timeoutNs);
  bool poll();
  void stop();
  void wake();
  void setWakeUpHook(std::function<void()> hook);

 private:
  struct Item {
    dispatch_block_t block;
    bool* done = nullptr;  ///< of a thread that waits in sync()
  };
  /// Makes the calling thread the main thread while it lives.
  class Draining;

  void push(Item item);
  /// Takes the first block and runs it, unlocked in between.
  void runFirst(std::unique_lock<std::mutex>& lock);
  bool isMainThread();

  std::mutex mutex_;
  std::condition_variable changed_;
  std::condition_variable syncDone_;
  std::deque<Item> items_;
  bool stopped_ = false;
  uint64_t wakeCount_ = 0;
  int drainDepth_ = 0;
  std::thread::id mainThread_;  ///< the thread that drains, or drained last
  std::shared_ptr<const std::function<void()>> hook_;
};

}  // namespace vidloom
