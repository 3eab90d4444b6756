#include "vidloom/platform/dispatch/WorkerPool.h"

#include <pthread.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <memory>
#include <system_error>
#include <thread>

#include "vidloom/platform/foundation/NSLog.h"

namespace vidloom {

namespace {

constexpr std::chrono::seconds kIdleTime{2};
constexpr std::chrono::seconds kExitTime{1};

/// Blocks signals for the calling thread while it lives; threads that are made meanwhile inherit that.
class SignalsBlocked {
 public:
  SignalsBlocked() {
    sigset_t blocked;
    sigfillset(&blocked);
    for (const int kept : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT, SIGTRAP, SIGSYS, SIGPROF}) sigdelset(&blocked, kept);
    pthread_sigmask(SIG_SETMASK, &blocked, &before_);
  }
  ~SignalsBlocked() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }
  SignalsBlocked(const SignalsBlocked&) = delete;
  SignalsBlocked& operator=(const SignalsBlocked&) = delete;

 private:
  sigset_t before_{};
};

}  // namespace

WorkerPool& WorkerPool::shared() {
  static WorkerPool& instance = []() -> WorkerPool& {
    std::atexit([] { shared().waitUntilSettled(); });
    return *std::make_unique<WorkerPool>().release();
  }();
  return instance;
}

void WorkerPool::submit(Job job) {
  {
    const std::lock_guard lock(mutex_);
    ++busyCount_;
    if (!idle_.empty()) {
      Worker& worker = *idle_.back();
      idle_.pop_back();
      worker.job = std::move(job);
      worker.wake.notify_one();
      return;
    }
  }
  startThread(std::move(job));
}

void WorkerPool::rest(const std::function<void()>& wait) {
  {
    const std::lock_guard lock(mutex_);
    countOneLess();
  }
  wait();
  const std::lock_guard lock(mutex_);
  ++busyCount_;
}

void WorkerPool::nameThread(const std::string& name) {
  thread_local std::string present;
  if (present == name) return;
  present = name;
  pthread_setname_np(pthread_self(), name.substr(0, 15).c_str());
}

void WorkerPool::startThread(Job job) {
  const SignalsBlocked blocked;
  try {
    std::thread([this, job = std::move(job)]() mutable { workerMain(std::move(job)); }).detach();
  } catch (const std::system_error& error) {
    NSLogAndAbort(std::string("dispatch: a queue has work but no thread can be started: ") + error.what());
  }
}

void WorkerPool::workerMain(Job job) {
  Worker worker;
  worker.job = std::move(job);
  do {
    worker.job();
    worker.job = nullptr;
  } while (waitForJob(worker));
}

bool WorkerPool::waitForJob(Worker& worker) {
  std::unique_lock lock(mutex_);
  countOneLess();
  idle_.push_back(&worker);
  if (worker.wake.wait_for(lock, kIdleTime, [&] { return worker.job != nullptr; })) return true;
  std::erase(idle_, &worker);
  return false;
}

void WorkerPool::countOneLess() {
  if (--busyCount_ == 0) settled_.notify_all();
}

void WorkerPool::waitUntilSettled() {
  std::unique_lock lock(mutex_);
  settled_.wait_for(lock, kExitTime, [&] { return busyCount_ == 0; });
}

}  // namespace vidloom
