// The clock behind timers and dispatch_after, replaceable so that tests need not wait.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>

namespace vidloom {

/// The source of time for dispatch_after and timers. The process-wide one is the monotonic clock; a test installs a
/// HandDrivenClock for its own lifetime.
class DispatchClock {
 public:
  virtual ~DispatchClock() = default;
  virtual uint64_t nowNs() const = 0;
  /// Makes the call once, when the clock shows `timeNs` or a little later: on a thread of the library, with a hand-driven clock on
  /// the thread that advances it. The call must be short and must not wait. A clock that does not override this one is taken to
  /// run as fast as the monotonic clock.
  virtual void callAt(uint64_t timeNs, std::function<void()> call);

  static std::shared_ptr<DispatchClock> current();
  /// A null clock restores the monotonic one. What is already waiting keeps the clock that it was submitted under.
  static void setCurrent(std::shared_ptr<DispatchClock> clock);
};

/// Stands still until it is advanced.
class HandDrivenClock : public DispatchClock {
 public:
  ~HandDrivenClock() override;
  static std::shared_ptr<HandDrivenClock> make(uint64_t startNs = 1'000'000'000);
  uint64_t nowNs() const override;
  /// What is due already is called at once, on the caller's thread.
  void callAt(uint64_t timeNs, std::function<void()> call) override;
  /// Moves on, making every call (submitting every block to its queue) that falls due in between, in order of time; the clock
  /// shows the time of each while it is made.
  void advance(uint64_t deltaNs);

 private:
  struct State;
  explicit HandDrivenClock(std::shared_ptr<State> state);
  std::shared_ptr<State> state_;
};

}  // namespace vidloom
