// What the tests of the queues share.
#pragma once

#include <mutex>
#include <string>
#include <vector>

#include "vidloom/platform/dispatch/dispatch.h"

namespace vidloom {

/// A limit for waits that end at once unless something is broken.
inline constexpr int64_t kSafetyNs = 20'000'000'000;

inline bool cameThrough(const dispatch_semaphore_t& semaphore) {
  return dispatch_semaphore_wait(semaphore, dispatch_time(DISPATCH_TIME_NOW, kSafetyNs)) == 0;
}

/// Waits until everything that was submitted to the queue before has run.
inline void flush(const dispatch_queue_t& queue) {
  dispatch_barrier_sync(queue, [] {});
}

/// A list of words that any thread may append to.
class Journal {
 public:
  void add(const std::string& word) {
    const std::lock_guard lock(mutex_);
    words_.push_back(word);
  }
  std::vector<std::string> words() const {
    const std::lock_guard lock(mutex_);
    return words_;
  }
  size_t size() const { return words().size(); }

 private:
  mutable std::mutex mutex_;
  std::vector<std::string> words_;
};

}  // namespace vidloom
