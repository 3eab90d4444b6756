// Waiting on a condition with a time of the dispatch clock as the limit.
#pragma once

#include <condition_variable>
#include <memory>
#include <mutex>

#include "vidloom/platform/dispatch/DispatchClock.h"
#include "vidloom/platform/dispatch/dispatch.h"

namespace vidloom {

/// Waits until `ready` or `timeout`; returns what `ready` says last. `owner` owns both `mutex` (locked by `lock`) and `condition`.
template <typename Owner, typename Ready>
bool waitUntil(const std::weak_ptr<Owner>& owner, std::unique_lock<std::mutex>& lock, std::mutex& mutex,
               std::condition_variable& condition, dispatch_time_t timeout, Ready ready) {
  if (timeout == DISPATCH_TIME_FOREVER) {
    condition.wait(lock, ready);
    return true;
  }
  if (ready() || timeout == DISPATCH_TIME_NOW) return ready();
  const auto clock = DispatchClock::current();
  const auto isOver = [&] { return clock->nowNs() >= timeout; };
  if (!isOver()) {
    // A clock that has moved on meanwhile makes the call right here.
    lock.unlock();
    clock->callAt(timeout, [owner, &mutex, &condition] {
      const auto keptAlive = owner.lock();
      if (!keptAlive) return;
      const std::lock_guard inner(mutex);
      condition.notify_all();
    });
    lock.lock();
    condition.wait(lock, [&] { return ready() || isOver(); });
  }
  return ready();
}

}  // namespace vidloom
