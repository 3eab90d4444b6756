// Serial and concurrent queues whose blocks run on worker threads.
#pragma once

#include <condition_variable>
#include <deque>
#include <mutex>

#include "vidloom/platform/dispatch/DispatchQueue.h"

namespace vidloom {

/// A first-in first-out list of blocks of which one (serial) or any number (concurrent) run at a time. Nothing of a block is ever
/// released while the lock is held.
class WorkerQueue : public DispatchQueue {
 public:
  enum class Barriers { honoured, ignored };
  WorkerQueue(std::string label, const dispatch_queue_attr_t& attributes, Barriers barriers);

  void async(dispatch_block_t block, bool barrier) override;
  void sync(const dispatch_block_t& block, bool barrier) override;

 private:
  /// A thread in sync() that waits for its turn; it runs its block itself.
  struct Waiter {
    std::condition_variable turn;
    bool granted = false;
  };
  struct Item {
    dispatch_block_t block;
    Waiter* waiter = nullptr;
    bool barrier = false;
  };

  bool mayStart(bool barrier) const;
  void noteStarted(bool barrier);
  void noteFinished(bool barrier);
  /// Grants every waiter whose turn it is and takes the first block whose turn it is. False where there is none. With the lock.
  bool takeNext(Item& next);
  /// Gives a thread to each block that may run now.
  void launchAll();
  void launch(Item item);
  /// Runs the item on the calling thread, then what else is due.
  void drain(Item item);

  const bool concurrent_;
  const bool honoursBarriers_;
  std::mutex mutex_;
  std::deque<Item> items_;
  size_t running_ = 0;
  bool barrierRunning_ = false;
};

}  // namespace vidloom
