#include "vidloom/platform/dispatch/RunLoop.h"

#include <gmock/gmock.h>

#include <atomic>
#include <thread>

#include "tests/platform/dispatch/DispatchTesting.h"

namespace vidloom {
namespace {

using ::testing::ElementsAre;

const dispatch_queue_t kMain = dispatch_get_main_queue();
RunLoop& loop() { return RunLoop::main(); }

TEST(MainQueue, RunsNothingUntilItIsDrainedAndThenInOrderCallingTheHookForEachBlock) {
  Journal journal;
  std::atomic<int> calls{0};
  loop().setWakeUpHook([&] { ++calls; });
  dispatch_async(kMain, [&] {
    journal.add("1");
    dispatch_async(kMain, [&] { journal.add("3"); });
    EXPECT_TRUE(dispatch_queue_is_current(kMain));
  });
  dispatch_async(kMain, [&] { journal.add("2"); });
  EXPECT_EQ(journal.words().size(), 0u);
  EXPECT_TRUE(loop().poll());
  EXPECT_THAT(journal.words(), ElementsAre("1", "2"));
  loop().setWakeUpHook(nullptr);
  dispatch_async(kMain, [&] { journal.add("4"); });
  EXPECT_TRUE(loop().poll());
  EXPECT_THAT(journal.words(), ElementsAre("1", "2", "3", "4"));
  EXPECT_EQ(calls, 3);
  EXPECT_FALSE(loop().poll());
  EXPECT_FALSE(dispatch_queue_is_current(kMain));
}

TEST(MainQueue, RunsSyncBlocksOfOtherThreadsOnTheMainThread) {
  std::thread::id ranOn;
  std::atomic<bool> returned{false};
  dispatch_async(dispatch_get_global_queue(QOS_CLASS_DEFAULT), [&] {
    dispatch_sync(kMain, [&] { ranOn = std::this_thread::get_id(); });
    returned = true;
    loop().wake();
  });
  EXPECT_TRUE(loop().runUntil([&] { return returned.load(); }, kSafetyNs));
  EXPECT_EQ(ranOn, std::this_thread::get_id());
}

TEST(RunLoop, LooksAtThePredicateBeforeAnyBlockAndAfterEach) {
  int ran = 0;
  for (int i = 0; i < 3; ++i) dispatch_async(kMain, [&] { ++ran; });
  EXPECT_TRUE(loop().runUntil([] { return true; }));
  EXPECT_EQ(ran, 0);
  EXPECT_TRUE(loop().runUntil([&] { return ran == 2; }, kSafetyNs));
  EXPECT_EQ(ran, 2);
  EXPECT_TRUE(loop().poll());
}

TEST(RunLoop, GivesUpAtTheTimeOutEvenWhileBlocksKeepComing) {
  EXPECT_FALSE(loop().runUntil([] { return false; }, 1'000'000));
  std::function<void()> again = [&] { dispatch_async(kMain, again); };
  again();
  EXPECT_FALSE(loop().runUntil([] { return false; }, 1'000'000));
  again = [] {};
  while (loop().poll()) continue;
}

TEST(RunLoop, StopsAfterTheBlockThatAsksForItOrAtOnceWhenAskedBefore) {
  int ran = 0;
  dispatch_async(kMain, [&] {
    ++ran;
    loop().stop();
  });
  dispatch_async(kMain, [&] { ++ran; });
  loop().run();
  EXPECT_EQ(ran, 1);
  loop().stop();
  loop().run();
  EXPECT_EQ(ran, 1);
  EXPECT_TRUE(loop().poll());
}

TEST(RunLoopDeathTest, StopsTheProgramWhenTwoThreadsDrainAtATime) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  dispatch_async(kMain, [] { EXPECT_DEATH(std::thread([] { loop().poll(); }).join(), "drained by two threads"); });
  EXPECT_TRUE(loop().poll());
}

}  // namespace
}  // namespace vidloom
