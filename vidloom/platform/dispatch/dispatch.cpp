#include "vidloom/platform/dispatch/dispatch.h"

#include <array>
#include <limits>

#include "vidloom/platform/dispatch/DispatchClock.h"
#include "vidloom/platform/dispatch/DispatchGroup.h"
#include "vidloom/platform/dispatch/DispatchQueue.h"
#include "vidloom/platform/dispatch/DispatchSemaphore.h"
#include "vidloom/platform/dispatch/MainQueue.h"
#include "vidloom/platform/dispatch/WorkerQueue.h"
#include "vidloom/platform/foundation/NSLog.h"

namespace vidloom {

namespace {

/// Whether the operation can go on; says in the log what is missing.
bool isGiven(bool given, const char* operation, const char* argument) {
  if (!given) NSLog(std::string(operation) + ": the " + argument + " is nil, nothing happens");
  return given;
}

bool canSubmit(const dispatch_queue_t& queue, const dispatch_block_t& block, const char* operation) {
  return isGiven(queue != nullptr, operation, "queue") && isGiven(block != nullptr, operation, "block");
}

struct GlobalQueue {
  uint32_t qosClass;
  dispatch_queue_t queue;
};

GlobalQueue makeGlobalQueue(uint32_t qosClass, const char* name) {
  const dispatch_queue_attr_t attributes{true, qosClass, 0};
  return {qosClass,
          std::make_shared<WorkerQueue>(std::string("vidloom.global.") + name, attributes, WorkerQueue::Barriers::ignored)};
}

}  // namespace

dispatch_queue_attr_t dispatch_queue_attr_make_with_qos_class(dispatch_queue_attr_t attr, uint32_t qosClass, int relativePriority) {
  return {attr.concurrent, qosClass, relativePriority};
}

dispatch_queue_t dispatch_queue_create(const std::string& label, dispatch_queue_attr_t attr) {
  return std::make_shared<WorkerQueue>(label, attr, WorkerQueue::Barriers::honoured);
}

dispatch_queue_t dispatch_get_main_queue() { return MainQueue::shared(); }

dispatch_queue_t dispatch_get_global_queue(uint32_t qosClass) {
  using Queues = std::array<GlobalQueue, 5>;
  static const Queues& queues =
      *std::make_unique<Queues>(
           Queues{makeGlobalQueue(QOS_CLASS_DEFAULT, "default"), makeGlobalQueue(QOS_CLASS_USER_INTERACTIVE, "interactive"),
                  makeGlobalQueue(QOS_CLASS_USER_INITIATED, "initiated"), makeGlobalQueue(QOS_CLASS_UTILITY, "utility"),
                  makeGlobalQueue(QOS_CLASS_BACKGROUND, "background")})
           .release();
  for (const GlobalQueue& global : queues) {
    if (global.qosClass == qosClass) return global.queue;
  }
  return queues[0].queue;
}

const std::string& dispatch_queue_get_label(const dispatch_queue_t& queue) {
  static const std::string none;
  return queue ? queue->label() : none;
}

dispatch_queue_attr_t dispatch_queue_get_attributes(const dispatch_queue_t& queue) {
  return queue ? queue->attributes() : dispatch_queue_attr_t{};
}

bool dispatch_queue_is_current(const dispatch_queue_t& queue) { return queue && queue->isCurrent(); }

void dispatch_async(const dispatch_queue_t& queue, dispatch_block_t block) {
  if (canSubmit(queue, block, "dispatch_async")) queue->async(std::move(block), false);
}

void dispatch_sync(const dispatch_queue_t& queue, const dispatch_block_t& block) {
  if (canSubmit(queue, block, "dispatch_sync")) queue->sync(block, false);
}

void dispatch_barrier_async(const dispatch_queue_t& queue, dispatch_block_t block) {
  if (canSubmit(queue, block, "dispatch_barrier_async")) queue->async(std::move(block), true);
}

void dispatch_barrier_sync(const dispatch_queue_t& queue, const dispatch_block_t& block) {
  if (canSubmit(queue, block, "dispatch_barrier_sync")) queue->sync(block, true);
}

dispatch_time_t dispatch_time(dispatch_time_t when, int64_t deltaNs) {
  if (when == DISPATCH_TIME_FOREVER) return DISPATCH_TIME_FOREVER;
  const dispatch_time_t base = when == DISPATCH_TIME_NOW ? DispatchClock::current()->nowNs() : when;
  if (deltaNs >= 0) {
    const auto delta = static_cast<uint64_t>(deltaNs);
    return delta < DISPATCH_TIME_FOREVER - base ? base + delta : DISPATCH_TIME_FOREVER;
  }
  // DISPATCH_TIME_NOW is no point in time, so the earliest one is 1.
  const uint64_t delta = uint64_t{0} - static_cast<uint64_t>(deltaNs);
  return delta < base ? base - delta : 1;
}

void dispatch_after(dispatch_time_t when, const dispatch_queue_t& queue, dispatch_block_t block) {
  if (!canSubmit(queue, block, "dispatch_after") || when == DISPATCH_TIME_FOREVER) return;
  const auto clock = DispatchClock::current();
  if (when == DISPATCH_TIME_NOW || when <= clock->nowNs()) return queue->async(std::move(block), false);
  clock->callAt(when, [queue, block = std::move(block)]() mutable { queue->async(std::move(block), false); });
}

dispatch_group_t dispatch_group_create() { return std::make_shared<DispatchGroup>(); }

void dispatch_group_enter(const dispatch_group_t& group) {
  if (isGiven(group != nullptr, "dispatch_group_enter", "group")) group->enter();
}

void dispatch_group_leave(const dispatch_group_t& group) {
  if (!isGiven(group != nullptr, "dispatch_group_leave", "group")) return;
  const dispatch_group_t keptAlive = group;
  keptAlive->leave();
}

void dispatch_group_async(const dispatch_group_t& group, const dispatch_queue_t& queue, dispatch_block_t block) {
  if (!isGiven(group != nullptr, "dispatch_group_async", "group") || !canSubmit(queue, block, "dispatch_group_async")) return;
  group->enter();
  queue->async(
      [group, block = std::move(block)]() mutable {
        block();
        block = nullptr;
        group->leave();
      },
      false);
}

void dispatch_group_notify(const dispatch_group_t& group, const dispatch_queue_t& queue, dispatch_block_t block) {
  if (!isGiven(group != nullptr, "dispatch_group_notify", "group") || !canSubmit(queue, block, "dispatch_group_notify")) return;
  group->notify(queue, std::move(block));
}

long dispatch_group_wait(const dispatch_group_t& group, dispatch_time_t timeout) { return !group || group->wait(timeout) ? 0 : 1; }

dispatch_semaphore_t dispatch_semaphore_create(long value) {
  return value < 0 ? nullptr : std::make_shared<DispatchSemaphore>(value);
}

void dispatch_semaphore_signal(const dispatch_semaphore_t& semaphore) {
  if (!isGiven(semaphore != nullptr, "dispatch_semaphore_signal", "semaphore")) return;
  const dispatch_semaphore_t keptAlive = semaphore;
  keptAlive->signal();
}

long dispatch_semaphore_wait(const dispatch_semaphore_t& semaphore, dispatch_time_t timeout) {
  return semaphore && semaphore->wait(timeout) ? 0 : 1;
}

}  // namespace vidloom
