// The threads behind the queues.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <vector>

namespace vidloom {

/// Threads that come and go with the work: a job that finds no idle thread gets a new one, so jobs may block for as long as they
/// like; a thread that stays idle for a while ends. The threads block all signals but those for faults and profiling, so that a
/// host's handlers run on threads of its own.
class WorkerPool {
 public:
  using Job = std::function<void()>;

  /// Lives until the process ends: a detached thread may outlive every other static object. A process that exits gives the jobs
  /// that are running then a second to end, before the static objects that they may be using go.
  static WorkerPool& shared();

  /// Starts the job on an idle or a new thread. What the job captured is released before the thread counts as idle.
  void submit(Job job);

  /// Makes the call, which does nothing but wait, from within a job; a process that exits meanwhile does not wait for that job.
  void rest(const std::function<void()>& wait);

  /// Names the calling thread; only the first 15 bytes are kept.
  static void nameThread(const std::string& name);

 private:
  struct Worker {
    std::condition_variable wake;
    Job job;
  };

  void startThread(Job job);
  void workerMain(Job job);
  /// Waits for another job. False when the thread has been idle for long enough to end.
  bool waitForJob(Worker& worker);
  /// Under the lock.
  void countOneLess();
  void waitUntilSettled();

  std::mutex mutex_;
  std::condition_variable settled_;
  int busyCount_ = 0;          ///< jobs handed over, not yet ended and not resting
  std::vector<Worker*> idle_;  ///< the one that became idle last is used first, so that surplus threads end
};

}  // namespace vidloom
