#include "vidloom/platform/dispatch/RunLoop.h"

#include "vidloom/platform/dispatch/MainQueue.h"

namespace vidloom {

RunLoop& RunLoop::main() {
  static RunLoop instance;
  return instance;
}

void RunLoop::run() { MainQueue::shared()->run(); }

bool RunLoop::runUntil(const std::function<bool()>& predicate, uint64_t timeoutNs) {
  return MainQueue::shared()->runUntil(predicate, timeoutNs);
}

bool RunLoop::poll() { return MainQueue::shared()->poll(); }

void RunLoop::stop() { MainQueue::shared()->stop(); }

void RunLoop::wake() { MainQueue::shared()->wake(); }

void RunLoop::setWakeUpHook(std::function<void()> hook) { MainQueue::shared()->setWakeUpHook(std::move(hook)); }

}  // namespace vidloom
