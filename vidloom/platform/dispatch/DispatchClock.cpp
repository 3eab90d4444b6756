#include "vidloom/platform/dispatch/DispatchClock.h"

#include <algorithm>
#include <map>
#include <mutex>

#include "vidloom/platform/dispatch/DispatchTimers.h"

namespace vidloom {

namespace {

class MonotonicClock : public DispatchClock {
 public:
  uint64_t nowNs() const override { return DispatchTimers::nowNs(); }
};

struct Installed {
  std::mutex mutex;
  std::shared_ptr<DispatchClock> clock = std::make_shared<MonotonicClock>();
};

/// Never destroyed: workers may still ask for the time while the process ends.
Installed& installed() {
  static Installed& instance = *std::make_unique<Installed>().release();
  return instance;
}

}  // namespace

void DispatchClock::callAt(uint64_t timeNs, std::function<void()> call) {
  const uint64_t now = nowNs();
  const uint64_t delay = timeNs > now ? timeNs - now : 0;
  DispatchTimers::shared().callAt(DispatchTimers::nowNs() + delay, std::move(call));
}

std::shared_ptr<DispatchClock> DispatchClock::current() {
  const std::lock_guard lock(installed().mutex);
  return installed().clock;
}

void DispatchClock::setCurrent(std::shared_ptr<DispatchClock> clock) {
  if (!clock) clock = std::make_shared<MonotonicClock>();
  const std::lock_guard lock(installed().mutex);
  installed().clock.swap(clock);
}

struct HandDrivenClock::State {
  std::mutex mutex;
  uint64_t nowNs = 0;
  std::multimap<uint64_t, std::function<void()>> calls;
};

HandDrivenClock::HandDrivenClock(std::shared_ptr<State> state) : state_(std::move(state)) {}

HandDrivenClock::~HandDrivenClock() = default;

std::shared_ptr<HandDrivenClock> HandDrivenClock::make(uint64_t startNs) {
  auto state = std::make_shared<State>();
  state->nowNs = startNs;
  return std::make_shared<HandDrivenClock>(HandDrivenClock(std::move(state)));
}

uint64_t HandDrivenClock::nowNs() const {
  const std::lock_guard lock(state_->mutex);
  return state_->nowNs;
}

void HandDrivenClock::callAt(uint64_t timeNs, std::function<void()> call) {
  {
    const std::lock_guard lock(state_->mutex);
    if (timeNs > state_->nowNs) {
      state_->calls.emplace(timeNs, std::move(call));
      return;
    }
  }
  call();
}

void HandDrivenClock::advance(uint64_t deltaNs) {
  const uint64_t end = nowNs() + deltaNs;
  while (true) {
    std::function<void()> call;
    {
      const std::lock_guard lock(state_->mutex);
      const auto next = state_->calls.begin();
      if (next == state_->calls.end() || next->first > end) {
        state_->nowNs = end;
        return;
      }
      state_->nowNs = std::max(state_->nowNs, next->first);
      call = std::move(next->second);
      state_->calls.erase(next);
    }
    call();
  }
}

}  // namespace vidloom
