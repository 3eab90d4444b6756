#include "vidloom/platform/dispatch/MainQueue.h"

#include <chrono>

#include "vidloom/platform/foundation/NSLog.h"

namespace vidloom {

class MainQueue::Draining {
 public:
  explicit Draining(MainQueue& queue) : queue_(queue), frame_(queue, false) {
    const std::lock_guard lock(queue_.mutex_);
    if (queue_.drainDepth_ > 0 && queue_.mainThread_ != std::this_thread::get_id()) {
      NSLogAndAbort("RunLoop::main() is drained by two threads at a time");
    }
    ++queue_.drainDepth_;
    queue_.mainThread_ = std::this_thread::get_id();
  }
  ~Draining() {
    const std::lock_guard lock(queue_.mutex_);
    --queue_.drainDepth_;
  }
  Draining(const Draining&) = delete;
  Draining& operator=(const Draining&) = delete;

 private:
  MainQueue& queue_;
  CurrentFrame frame_;
};

const std::shared_ptr<MainQueue>& MainQueue::shared() {
  static const auto& instance = *std::make_unique<std::shared_ptr<MainQueue>>(std::make_shared<MainQueue>()).release();
  return instance;
}

void MainQueue::async(dispatch_block_t block, bool) { push({std::move(block)}); }

void MainQueue::sync(const dispatch_block_t& block, bool) {
  if (isMainThread()) stopForReentrantSync();
  bool done = false;
  push({[&block] { block(); }, &done});
  std::unique_lock lock(mutex_);
  syncDone_.wait(lock, [&] { return done; });
}

bool MainQueue::isMainThread() {
  const std::lock_guard lock(mutex_);
  return mainThread_ == std::this_thread::get_id();
}

void MainQueue::push(Item item) {
  std::shared_ptr<const std::function<void()>> hook;
  {
    const std::lock_guard lock(mutex_);
    items_.push_back(std::move(item));
    hook = hook_;
    changed_.notify_all();
  }
  if (hook) (*hook)();
}

void MainQueue::runFirst(std::unique_lock<std::mutex>& lock) {
  Item item = std::move(items_.front());
  items_.pop_front();
  lock.unlock();
  item.block();
  item.block = nullptr;
  lock.lock();
  if (item.done == nullptr) return;
  *item.done = true;
  syncDone_.notify_all();
}

void MainQueue::run() {
  const Draining draining(*this);
  std::unique_lock lock(mutex_);
  while (true) {
    changed_.wait(lock, [&] { return stopped_ || !items_.empty(); });
    if (stopped_) break;
    runFirst(lock);
  }
  stopped_ = false;
}

bool MainQueue::runUntil(const std::function<bool()>& predicate, uint64_t timeoutNs) {
  using Clock = std::chrono::steady_clock;
  constexpr uint64_t kLongestNs = uint64_t{1} << 60;
  const auto deadline = Clock::now() + std::chrono::nanoseconds(std::min(timeoutNs, kLongestNs));
  const Draining draining(*this);
  std::unique_lock lock(mutex_);
  while (true) {
    const uint64_t wakesSeen = wakeCount_;
    lock.unlock();
    const bool satisfied = predicate();
    if (satisfied || Clock::now() >= deadline) return satisfied;
    lock.lock();
    changed_.wait_until(lock, deadline, [&] { return !items_.empty() || wakeCount_ != wakesSeen; });
    if (!items_.empty()) runFirst(lock);
  }
}

bool MainQueue::poll() {
  const Draining draining(*this);
  std::unique_lock lock(mutex_);
  const size_t present = items_.size();
  for (size_t i = 0; i < present && !items_.empty(); ++i) runFirst(lock);
  return present > 0;
}

void MainQueue::stop() {
  const std::lock_guard lock(mutex_);
  stopped_ = true;
  changed_.notify_all();
}

void MainQueue::wake() {
  const std::lock_guard lock(mutex_);
  ++wakeCount_;
  changed_.notify_all();
}

void MainQueue::setWakeUpHook(std::function<void()> hook) {
  auto replacement = hook ? std::make_shared<const std::function<void()>>(std::move(hook)) : nullptr;
  const std::lock_guard lock(mutex_);
  hook_.swap(replacement);
}

}  // namespace vidloom
