// Calls at a time of the monotonic clock.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>

namespace vidloom {

/// One list of calls for the process. A worker thread waits for the earliest of them as long as there is any.
class DispatchTimers {
 public:
  static DispatchTimers& shared();
  /// The monotonic clock, which stands still while the machine sleeps.
  static uint64_t nowNs();

  /// Makes the call at `timeNs` or a little later, on the worker thread. It must be short and must not wait.
  void callAt(uint64_t timeNs, std::function<void()> call);

 private:
  /// Serves the list until it is empty.
  void serve();

  std::mutex mutex_;
  std::condition_variable changed_;
  std::multimap<uint64_t, std::function<void()>> calls_;
  bool serving_ = false;
};

}  // namespace vidloom
