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

dispatch_queue_t serialQueue() { return dispatch_queue_create("a label of some length", DISPATCH_QUEUE_SERIAL); }
dispatch_queue_t concurrentQueue() { return dispatch_queue_create("concurrent", DISPATCH_QUEUE_CONCURRENT); }

TEST(SerialQueue, RunsTheWorkOfManyThreadsOneByOneAndThatOfEachInItsOrder) {
  const auto queue = serialQueue();
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

TEST(SerialQueue, RunsSyncOnTheCallersThreadAfterWhatCameBeforeOnThreadsOfItsName) {
  const auto queue = serialQueue();
  const auto gate = dispatch_semaphore_create(0);
  std::thread::id ranOn;
  char threadName[16] = {};
  dispatch_async(queue, [&] {
    dispatch_semaphore_wait(gate, DISPATCH_TIME_FOREVER);
    pthread_getname_np(pthread_self(), threadName, sizeof threadName);
  });
  dispatch_semaphore_signal(gate);
  dispatch_sync(queue, [&] { ranOn = std::this_thread::get_id(); });
  EXPECT_EQ(ranOn, std::this_thread::get_id());
  EXPECT_STREQ(threadName, "a label of some");
}

TEST(ConcurrentQueue, OverlapsBlocksBeforeAndAfterABarrier) {
  const auto queue = concurrentQueue();
  Journal journal;
  const auto first = dispatch_semaphore_create(0), second = dispatch_semaphore_create(0), done = dispatch_semaphore_create(0);
  dispatch_async(queue, [&] {
    dispatch_semaphore_wait(first, DISPATCH_TIME_FOREVER);  // only comes through where the next one runs beside it
    journal.add("AB");
  });
  dispatch_async(queue, [&] { dispatch_semaphore_signal(first); });
  dispatch_barrier_async(queue, [&] { journal.add("C"); });
  dispatch_async(queue, [&] {
    dispatch_semaphore_wait(second, DISPATCH_TIME_FOREVER);
    dispatch_sync(queue, [&] { journal.add("DE"); });
    dispatch_semaphore_signal(done);
  });
  dispatch_async(queue, [&] { dispatch_semaphore_signal(second); });
  ASSERT_TRUE(cameThrough(done));
  EXPECT_THAT(journal.words(), ElementsAre("AB", "C", "DE"));
}

TEST(ConcurrentQueue, KeepsWritersApartFromReaders) {
  const auto queue = concurrentQueue();
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
  for (int i = 0; i < kJobs; ++i) {
    dispatch_group_async(group, i % 2 ? serialQueue() : concurrentQueue(), [&] {
      dispatch_semaphore_signal(arrived);
      dispatch_semaphore_wait(gate, DISPATCH_TIME_FOREVER);
    });
  }
  for (int i = 0; i < kJobs; ++i) ASSERT_TRUE(cameThrough(arrived)) << i;
  for (int i = 0; i < kJobs; ++i) dispatch_semaphore_signal(gate);
  EXPECT_EQ(dispatch_group_wait(group, dispatch_time(DISPATCH_TIME_NOW, kSafetyNs)), 0);
}

/// Uses its queue once more when it is released.
struct Owner {
  dispatch_queue_t queue;
  dispatch_semaphore_t done;
  ~Owner() {
    dispatch_async(queue, [semaphore = done] { dispatch_semaphore_signal(semaphore); });
  }
};

TEST(Queues, MayBeUsedAndDroppedByWhatTheirOwnLastBlockReleases) {
  for (const auto& makeQueue : {serialQueue, concurrentQueue}) {
    const auto done = dispatch_semaphore_create(0), gate = dispatch_semaphore_create(0);
    auto owner = std::make_shared<Owner>(Owner{makeQueue(), done});
    dispatch_async(owner->queue, [owner, gate] { dispatch_semaphore_wait(gate, DISPATCH_TIME_FOREVER); });
    owner.reset();
    dispatch_semaphore_signal(gate);
    EXPECT_TRUE(cameThrough(done));
  }
}

TEST(Queues, ReleaseABlockBeforeTheNextOneRuns) {
  const auto queue = serialQueue();
  auto object = std::make_shared<int>(1);
  const auto watch = std::weak_ptr(object);
  bool released = false;
  dispatch_async(queue, [object = std::move(object)] {});
  dispatch_sync(queue, [&] { released = watch.expired(); });
  EXPECT_TRUE(released);
}

TEST(QueueDeathTest, StopsTheProgramForASyncThatWaitsForItself) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const auto serial = serialQueue(), between = serialQueue(), concurrent = concurrentQueue(), main = dispatch_get_main_queue();
  const auto nothing = [] {};
  constexpr const char* kMessage = "dispatch_sync called on queue already owned by current thread";
  EXPECT_DEATH(dispatch_sync(serial, [&] { dispatch_sync(between, [&] { dispatch_sync(serial, nothing); }); }), kMessage);
  EXPECT_DEATH(dispatch_barrier_sync(concurrent, [&] { dispatch_sync(concurrent, nothing); }), kMessage);
  dispatch_async(main, [&] { EXPECT_DEATH(dispatch_sync(main, nothing), kMessage); });
  EXPECT_TRUE(RunLoop::main().poll());
}

}  // namespace
}  // namespace vidloom
