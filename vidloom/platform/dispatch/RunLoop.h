// Where the main queue's blocks run.
#pragma once

#include <cstdint>
#include <functional>

namespace vidloom {

/// The main thread's loop. A host drains the main queue by run(), runUntil() or, once per frame of a loop of its own, poll().
/// Only one thread may drain it at a time; that thread is the main thread for as long as it does.
class RunLoop {
 public:
  static RunLoop& main();

  /// Runs blocks until stop(). A stop() that came before the call ends it at once.
  void run();
  /// Runs blocks until `predicate` is true (looked at before the first block and after each) or `timeoutNs` of the monotonic
  /// clock have passed. Returns the predicate's last value.
  bool runUntil(const std::function<bool()>& predicate, uint64_t timeoutNs = ~uint64_t{0});
  /// Runs what is there and returns at once. True if anything ran.
  bool poll();
  /// Makes run() return after the block it is running. Any thread.
  void stop();
  /// Wakes a waiting run() or runUntil(), so that the predicate is looked at again. Any thread; async-signal-unsafe.
  void wake();
  /// Called, on any thread, whenever a block was submitted to the main queue: for hosts with a loop of their own.
  void setWakeUpHook(std::function<void()> hook);

 private:
  RunLoop() = default;
};

}  // namespace vidloom
