// Queues, groups, semaphores and the main queue. The only place of the library where threads are made.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

namespace vidloom {

using dispatch_block_t = std::function<void()>;
/// Nanoseconds on the dispatch clock (see DispatchClock).
using dispatch_time_t = uint64_t;
inline constexpr dispatch_time_t DISPATCH_TIME_NOW = 0;
inline constexpr dispatch_time_t DISPATCH_TIME_FOREVER = ~uint64_t{0};

inline constexpr uint32_t QOS_CLASS_USER_INTERACTIVE = 0x21;
inline constexpr uint32_t QOS_CLASS_USER_INITIATED = 0x19;
inline constexpr uint32_t QOS_CLASS_DEFAULT = 0x15;
inline constexpr uint32_t QOS_CLASS_UTILITY = 0x11;
inline constexpr uint32_t QOS_CLASS_BACKGROUND = 0x09;
inline constexpr uint32_t QOS_CLASS_UNSPECIFIED = 0;

struct dispatch_queue_attr_t {
  bool concurrent = false;
  uint32_t qosClass = QOS_CLASS_UNSPECIFIED;
  int relativePriority = 0;  ///< kept and readable; takes no part in scheduling
};
inline constexpr dispatch_queue_attr_t DISPATCH_QUEUE_SERIAL{false, QOS_CLASS_UNSPECIFIED, 0};
inline constexpr dispatch_queue_attr_t DISPATCH_QUEUE_CONCURRENT{true, QOS_CLASS_UNSPECIFIED, 0};
dispatch_queue_attr_t dispatch_queue_attr_make_with_qos_class(dispatch_queue_attr_t attr, uint32_t qosClass, int relativePriority);

class DispatchQueue;
class DispatchGroup;
class DispatchSemaphore;
/// Handles to shared state: work that was submitted keeps a queue alive; dropping the last handle never waits.
using dispatch_queue_t = std::shared_ptr<DispatchQueue>;
using dispatch_group_t = std::shared_ptr<DispatchGroup>;
using dispatch_semaphore_t = std::shared_ptr<DispatchSemaphore>;

/// A new queue; the label is also the name of the thread that runs its blocks (its first 15 characters). A queue that has work
/// and finds no idle worker gets a new one, so blocks may wait for long.
dispatch_queue_t dispatch_queue_create(const std::string& label, dispatch_queue_attr_t attr);
/// The queue that the host drains through RunLoop::main().
dispatch_queue_t dispatch_get_main_queue();
/// The shared concurrent queue of that quality of service.
dispatch_queue_t dispatch_get_global_queue(uint32_t qosClass);
const std::string& dispatch_queue_get_label(const dispatch_queue_t& queue);
dispatch_queue_attr_t dispatch_queue_get_attributes(const dispatch_queue_t& queue);
/// Whether the calling thread is running a block of that queue right now.
bool dispatch_queue_is_current(const dispatch_queue_t& queue);

void dispatch_async(const dispatch_queue_t& queue, dispatch_block_t block);
/// Runs the block and returns when it is done; on an idle queue it runs on the caller's thread. Stops the program on the serial
/// queue that the caller is running on.
void dispatch_sync(const dispatch_queue_t& queue, const dispatch_block_t& block);
/// On a concurrent queue made by dispatch_queue_create: waits for everything before it, runs alone, what comes after waits.
/// On any other queue the same as dispatch_async / dispatch_sync.
void dispatch_barrier_async(const dispatch_queue_t& queue, dispatch_block_t block);
void dispatch_barrier_sync(const dispatch_queue_t& queue, const dispatch_block_t& block);

/// `delta` nanoseconds after `when` (DISPATCH_TIME_NOW: the clock's present time).
dispatch_time_t dispatch_time(dispatch_time_t when, int64_t deltaNs);
/// Submits the block to the queue at `when` or a little later.
void dispatch_after(dispatch_time_t when, const dispatch_queue_t& queue, dispatch_block_t block);

dispatch_group_t dispatch_group_create();
void dispatch_group_enter(const dispatch_group_t& group);
/// Stops the program when the group was not entered that often.
void dispatch_group_leave(const dispatch_group_t& group);
void dispatch_group_async(const dispatch_group_t& group, const dispatch_queue_t& queue, dispatch_block_t block);
/// Submits the block once, when the group's count is (or becomes) zero.
void dispatch_group_notify(const dispatch_group_t& group, const dispatch_queue_t& queue, dispatch_block_t block);
/// 0 when the count became zero, else non-zero at the time-out.
long dispatch_group_wait(const dispatch_group_t& group, dispatch_time_t timeout);

/// Null for a negative value.
dispatch_semaphore_t dispatch_semaphore_create(long value);
void dispatch_semaphore_signal(const dispatch_semaphore_t& semaphore);
/// 0 when signalled, non-zero at the time-out.
long dispatch_semaphore_wait(const dispatch_semaphore_t& semaphore, dispatch_time_t timeout);

}  // namespace vidloom
