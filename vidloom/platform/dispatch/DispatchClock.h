// The clock behind timers and dispatch_after, replaceable so that tests need not wait.
#pragma once

#include <cstdint>
#include <memory>

namespace vidloom {

/// The source of time for dispatch_after and timers. The process-wide one is the monotonic clock; a test installs a
/// HandDrivenClock for its own lifetime.
class DispatchClock {
 public:
  virtual ~DispatchClock() = default;
  virtual uint64_t nowNs() const = 0;

  static std::shared_ptr<DispatchClock> current();
  /// A null clock restores the monotonic one. What is already waiting keeps the clock that it was submitted under.
  static void setCurrent(std::shared_ptr<DispatchClock> clock);
};

/// Stands still until it is advanced.
class HandDrivenClock : public DispatchClock {
 public:
  static std::shared_ptr<HandDrivenClock> make(uint64_t startNs = 1'000'000'000);
  uint64_t nowNs() const override;
  /// Moves on, submitting everything that falls due in between to its queue, in order of time.
  void advance(uint64_t deltaNs);

 private:
  struct State;
  explicit HandDrivenClock(std::shared_ptr<State> state) : state_(std::move(state)) {}
  friend class DispatchTimers;
  std::shared_ptr<State> state_;
};

}  // namespace vidloom
