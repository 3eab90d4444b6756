#include <gmock/gmock.h>
#include <pthread.h>

#include <atomic>
#include <numeric>
#include <thread>

#include "tests/platform/dispatch/DispatchTesting.h"
#include "vidloom/platform/dispatch/RunLoop.h"

namespace vidloom {
namespace {

using ::testing::ElementsAre;

TEST(SerialQueue, RunsTheWorkOfManyThreadsOneByOneAndThatOfEachInItsOrder) {
  const auto queue = dispatch_queue_create("serial", DISPATCH_QUEUE_SERIAL);
  std::vector<std::vector<int>> orders(6);  // unguarded on purpose: the thread sanitizer sees any overlap
  int count = 0;
  std::vector<std::thread> threads;
  for (auto& order : orders) {
    threads.emplace_back([&] {
      for (int i = 0; i < 500; ++i) {
        const auto block = [&count, &order, i] {
          ++count;
          order.push_back(i);
        };
        if (i % 3 == 0) dispatch_sync(queue, block);
        if (i % 3 != 0) (i % 3 == 1 ? dispatch_async : dispatch_barrier_async)(queue, block);
      }
    });
  }
  for (auto& thread : threads) thread.join();
  flush(queue);
  std::vector<int> expected(500);
  std::iota(expected.begin(), expected.end(), 0);
  EXPECT_THAT(orders, ::testing::Each(expected));
  EXPECT_EQ(count, 3000);
}

TEST(SerialQueue, RunsSyncOnTheCallersThreadAlsoAfterOthers) {
  const auto queue = dispatch_queue_create("a label of some length", DISPATCH_QUEUE_SERIAL);
  for (const bool busy : {false, true}) {
    const auto gate = dispatch_semaphore_create(0);
    std::thread::id ranOn;
    char threadName[16] = {};
    if (busy) {
      dispatch_async(queue, [&] {
        dispatch_semaphore_wait(gate, DISPATCH_TIME_FOREVER);
        pthread_getname_np(pthread_self(), threadName, sizeof threadName);
      });
    }
    dispatch_semaphore_signal(gate);
    dispatch_sync(queue, [&] { ranOn = std::this_thread::get_id(); });
    EXPECT_EQ(ranOn, std::this_thread::get_id());
    EXPECT_STREQ(threadName, busy ? "a label of some" : "");
  }
}

TEST(ConcurrentQueue, OverlapsBlocksAndKeepsBarriersAlone) {
  const auto queue = dispatch_queue_create("concurrent", DISPATCH_QUEUE_CONCURRENT);
  Journal journal;
  const auto aStarted = dispatch_semaphore_create(0), bRan = dispatch_semaphore_create(0), met = dispatch_semaphore_create(0),
             done = dispatch_semaphore_create(0);
  dispatch_async(queue, [&] {
    dispatch_semaphore_signal(aStarted);
    dispatch_semaphore_wait(bRan, DISPATCH_TIME_FOREVER);  // only comes through where B runs beside A
    journal.add("AB");
  });
  ASSERT_TRUE(cameThrough(aStarted));
  dispatch_async(queue, [&] { dispatch_semaphore_signal(bRan); });
  dispatch_barrier_async(queue, [&] { journal.add("C"); });
  dispatch_barrier_async(queue, [&] { journal.add("D"); });
  dispatch_async(queue, [&] {
    dispatch_semaphore_wait(met, DISPATCH_TIME_FOREVER);  // those after a barrier overlap again
    dispatch_sync(queue, [&] { journal.add("EF"); });
    dispatch_semaphore_signal(done);
  });
  dispatch_async(queue, [&] { dispatch_semaphore_signal(met); });
  ASSERT_TRUE(cameThrough(done));
  EXPECT_THAT(journal.words(), ElementsAre("AB", "C", "D", "EF"));
}

TEST(ConcurrentQueue, KeepsWritersApartFromReaders) {
  const auto queue = dispatch_queue_create("concurrent", DISPATCH_QUEUE_CONCURRENT);
  std::atomic<int> readers{0};
  int value = 0;  // written in barriers only
  std::atomic<bool> writing{false}, overlapped{false};
  for (int i = 0; i < 400; ++i) {
    if (i % 5 == 0) {
      dispatch_barrier_async(queue, [&] {
        writing = true;
        for (int look = 0; look < 2000; ++look) {
          if (readers != 0) overlapped = true;
        }
        ++value;
        writing = false;
      });
    } else {
      dispatch_async(queue, [&] {
        ++readers;
        if (writing || value < 0) overlapped = true;
        --readers;
      });
    }
  }
  flush(queue);
  EXPECT_FALSE(overlapped);
  EXPECT_EQ(value, 80);
}

TEST(GlobalQueue, IsSharedConcurrentAndIgnoresBarriers) {
  const auto queue = dispatch_get_global_queue(QOS_CLASS_DEFAULT);
  EXPECT_EQ(queue, dispatch_get_global_queue(QOS_CLASS_DEFAULT));
  const auto met = dispatch_semaphore_create(0), done = dispatch_semaphore_create(0);
  dispatch_barrier_async(queue, [&] {
    dispatch_semaphore_wait(met, DISPATCH_TIME_FOREVER);
    dispatch_semaphore_signal(done);
  });
  dispatch_barrier_async(queue, [&] { dispatch_semaphore_signal(met); });
  EXPECT_TRUE(cameThrough(done));
}

TEST(Queues, GetAThreadForEveryBlockThatBlocks) {
  constexpr int kJobs = 16;
  const auto gate = dispatch_semaphore_create(0), arrived = dispatch_semaphore_create(0);
  const auto group = dispatch_group_create();
  std::vector<dispatch_queue_t> queues;
  for (int i = 0; i < kJobs; ++i) {
    queues.push_back(dispatch_queue_create("job" + std::to_string(i), i % 2 ? DISPATCH_QUEUE_SERIAL : DISPATCH_QUEUE_CONCURRENT));
    dispatch_group_async(group, queues.back(), [&] {
      dispatch_semaphore_signal(arrived);
      dispatch_semaphore_wait(gate, DISPATCH_TIME_FOREVER);
    });
  }
  for (int i = 0; i < kJobs; ++i) ASSERT_TRUE(cameThrough(arrived)) << i;
  for (int i = 0; i < kJobs; ++i) dispatch_semaphore_signal(gate);
  EXPECT_EQ(dispatch_group_wait(group, dispatch_time(DISPATCH_TIME_NOW, kSafetyNs)), 0);
}

TEST(Queues, MayBeDroppedByTheirOwnLastBlock) {
  const auto done = dispatch_semaphore_create(0);
  struct Owner {
    dispatch_queue_t queue = dispatch_queue_create("owned", DISPATCH_QUEUE_SERIAL);
    dispatch_semaphore_t destroyed;
    ~Owner() { dispatch_semaphore_signal(destroyed); }
  };
  auto owner = std::make_shared<Owner>();
  owner->destroyed = done;
  const auto queue = std::weak_ptr(owner->queue);
  const auto gate = dispatch_semaphore_create(0);
  dispatch_async(owner->queue, [owner, gate] { dispatch_semaphore_wait(gate, DISPATCH_TIME_FOREVER); });
  owner.reset();
  dispatch_semaphore_signal(gate);
  EXPECT_TRUE(cameThrough(done));
}

TEST(Queues, ReleaseABlockOutsideTheirLocks) {
  const auto queue = dispatch_queue_create("serial", DISPATCH_QUEUE_SERIAL);
  const auto done = dispatch_semaphore_create(0);
  struct SubmitsWhenReleased {
    dispatch_queue_t queue;
    dispatch_semaphore_t done;
    ~SubmitsWhenReleased() {
      dispatch_async(queue, [semaphore = done] { dispatch_semaphore_signal(semaphore); });
    }
  };
  for (const auto& target : {queue, dispatch_queue_create("concurrent", DISPATCH_QUEUE_CONCURRENT)}) {
    dispatch_async(target, [held = std::make_shared<SubmitsWhenReleased>(SubmitsWhenReleased{target, done})] {});
    EXPECT_TRUE(cameThrough(done));
  }
}

TEST(Queues, ReleaseABlockBeforeTheNextOneRuns) {
  const auto queue = dispatch_queue_create("serial", DISPATCH_QUEUE_SERIAL);
  auto object = std::make_shared<int>(1);
  const auto watch = std::weak_ptr(object);
  bool released = false;
  dispatch_async(queue, [object = std::move(object)] {});
  dispatch_async(queue, [&] { released = watch.expired(); });
  flush(queue);
  EXPECT_TRUE(released);
}

TEST(QueueDeathTest, StopsTheProgramForASyncThatWaitsForItself) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const auto serial = dispatch_queue_create("serial", DISPATCH_QUEUE_SERIAL);
  const auto between = dispatch_queue_create("between", DISPATCH_QUEUE_SERIAL);
  const auto concurrent = dispatch_queue_create("concurrent", DISPATCH_QUEUE_CONCURRENT);
  const auto nothing = [] {};
  constexpr const char* kMessage = "dispatch_sync called on queue already owned by current thread";
  EXPECT_DEATH(dispatch_sync(serial, [&] { dispatch_sync(serial, nothing); }), kMessage);
  EXPECT_DEATH(dispatch_sync(serial, [&] { dispatch_sync(between, [&] { dispatch_sync(serial, nothing); }); }), kMessage);
  EXPECT_DEATH(dispatch_barrier_sync(concurrent, [&] { dispatch_sync(concurrent, nothing); }), kMessage);
  EXPECT_DEATH(
      {
        dispatch_async(dispatch_get_main_queue(), [&] { dispatch_sync(dispatch_get_main_queue(), nothing); });
        RunLoop::main().poll();
      },
      kMessage);
}

}  // namespace
}  // namespace vidloom
