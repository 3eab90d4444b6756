#include "vidloom/platform/dispatch/DispatchTimers.h"

#include <chrono>

#include "vidloom/platform/dispatch/WorkerPool.h"

namespace vidloom {

DispatchTimers& DispatchTimers::shared() {
  static DispatchTimers& instance = *std::make_unique<DispatchTimers>().release();
  return instance;
}

uint64_t DispatchTimers::nowNs() {
  const auto sinceStart = std::chrono::steady_clock::now().time_since_epoch();
  return static_cast<uint64_t>(std::chrono::duration_cast<std::chrono::nanoseconds>(sinceStart).count());
}

void DispatchTimers::callAt(uint64_t timeNs, std::function<void()> call) {
  {
    const std::lock_guard lock(mutex_);
    calls_.emplace(timeNs, std::move(call));
    if (serving_) {
      changed_.notify_one();
      return;
    }
    serving_ = true;
  }
  WorkerPool::shared().submit([this] { serve(); });
}

void DispatchTimers::serve() {
  WorkerPool::nameThread("vidloom.timers");
  std::unique_lock lock(mutex_);
  while (!calls_.empty()) {
    const uint64_t due = calls_.begin()->first;
    if (due > nowNs()) {
      const std::chrono::steady_clock::time_point dueTime{std::chrono::nanoseconds(due)};
      WorkerPool::shared().rest([&] { changed_.wait_until(lock, dueTime); });
      continue;
    }
    auto call = std::move(calls_.begin()->second);
    calls_.erase(calls_.begin());
    lock.unlock();
    call();
    call = nullptr;
    lock.lock();
  }
  serving_ = false;
}

}  // namespace vidloom
