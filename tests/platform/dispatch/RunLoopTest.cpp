#include "vidloom/platform/dispatch/RunLoop.h"

#include <gmock/gmock.h>

#include <atomic>
#include <thread>

#include "tests/platform/dispatch/DispatchTesting.h"

namespace vidloom {
namespace {

using ::testing::ElementsAre;

TEST(MainQueue, RunsNothingUntilItIsDrainedAndThenInOrder) {
  Journal journal;
  const auto queue = dispatch_get_main_queue();
  dispatch_async(queue, [&] {
    journal.add("1");
    dispatch_async(queue, [&] { journal.add("3"); });
    EXPECT_TRUE(dispatch_queue_is_current(queue));
  });
  dispatch_async(queue, [&] { journal.add("2"); });
  EXPECT_EQ(journal.size(), 0u);
  EXPECT_TRUE(RunLoop::main().poll());
  EXPECT_THAT(journal.words(), ElementsAre("1", "2"));
  EXPECT_TRUE(RunLoop::main().poll());
  EXPECT_THAT(journal.words(), ElementsAre("1", "2", "3"));
  EXPECT_FALSE(RunLoop::main().poll());
  EXPECT_FALSE(dispatch_queue_is_current(queue));
}

TEST(MainQueue, RunsSyncBlocksOfOtherThreadsOnTheMainThread) {
  const auto worker = dispatch_queue_create("worker", DISPATCH_QUEUE_SERIAL);
  const auto mainThread = std::this_thread::get_id();
  std::thread::id ranOn;
  std::atomic<bool> returned{false};
  dispatch_async(worker, [&] {
    dispatch_sync(dispatch_get_main_queue(), [&] { ranOn = std::this_thread::get_id(); });
    returned = true;
    RunLoop::main().wake();
  });
  EXPECT_TRUE(RunLoop::main().runUntil([&] { return returned.load(); }, kSafetyNs));
  EXPECT_EQ(ranOn, mainThread);
}

TEST(RunLoop, LooksAtThePredicateBeforeAnyBlockAndAfterEach) {
  int ran = 0;
  for (int i = 0; i < 3; ++i) dispatch_async(dispatch_get_main_queue(), [&] { ++ran; });
  EXPECT_TRUE(RunLoop::main().runUntil([] { return true; }));
  EXPECT_EQ(ran, 0);
  EXPECT_TRUE(RunLoop::main().runUntil([&] { return ran == 2; }, kSafetyNs));
  EXPECT_EQ(ran, 2);
  EXPECT_TRUE(RunLoop::main().poll());
}

TEST(RunLoop, GivesUpAtTheTimeOutEvenWhileBlocksKeepComing) {
  EXPECT_FALSE(RunLoop::main().runUntil([] { return false; }, 1'000'000));
  std::function<void()> again = [&] { dispatch_async(dispatch_get_main_queue(), again); };
  again();
  EXPECT_FALSE(RunLoop::main().runUntil([] { return false; }, 1'000'000));
  again = [] {};
  while (RunLoop::main().poll()) {
  }
}

TEST(RunLoop, StopsAfterTheBlockThatAsksForItOrAtOnceWhenAskedBefore) {
  int ran = 0;
  dispatch_async(dispatch_get_main_queue(), [&] {
    ++ran;
    RunLoop::main().stop();
  });
  dispatch_async(dispatch_get_main_queue(), [&] { ++ran; });
  RunLoop::main().run();
  EXPECT_EQ(ran, 1);
  RunLoop::main().stop();
  RunLoop::main().run();
  EXPECT_EQ(ran, 1);
  EXPECT_TRUE(RunLoop::main().poll());
}

TEST(RunLoop, CallsTheHookForEveryBlockSubmitted) {
  std::atomic<int> calls{0};
  RunLoop::main().setWakeUpHook([&] { ++calls; });
  dispatch_async(dispatch_get_main_queue(), [] {});
  dispatch_async(dispatch_get_main_queue(), [] {});
  RunLoop::main().setWakeUpHook(nullptr);
  dispatch_async(dispatch_get_main_queue(), [] {});
  EXPECT_EQ(calls, 2);
  RunLoop::main().poll();
}

TEST(RunLoopDeathTest, StopsTheProgramWhenTwoThreadsDrainAtATime) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_DEATH(
      {
        dispatch_async(dispatch_get_main_queue(), [] { std::thread([] { RunLoop::main().poll(); }).join(); });
        RunLoop::main().poll();
      },
      "drained by two threads");
}

}  // namespace
}  // namespace vidloom
