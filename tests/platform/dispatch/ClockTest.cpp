#include <gmock/gmock.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>

#include "tests/platform/dispatch/DispatchTesting.h"
#include "vidloom/platform/dispatch/DispatchClock.h"
#include "vidloom/platform/dispatch/RunLoop.h"

namespace vidloom {
namespace {

using ::testing::ElementsAre;

constexpr uint64_t kMillisecondNs = 1'000'000;

class HandDriven : public ::testing::Test {
 protected:
  HandDriven() { DispatchClock::setCurrent(clock_); }
  ~HandDriven() override { DispatchClock::setCurrent(nullptr); }

  void after(int64_t delayNs, const std::string& word) {
    dispatch_after(dispatch_time(DISPATCH_TIME_NOW, delayNs), queue_, [this, word] { journal_.add(word); });
  }
  std::vector<std::string> wordsAfter(uint64_t deltaNs) {
    clock_->advance(deltaNs);
    flush(queue_);
    return journal_.words();
  }

  std::shared_ptr<HandDrivenClock> clock_ = HandDrivenClock::make(5000);
  dispatch_queue_t queue_ = dispatch_queue_create("after", DISPATCH_QUEUE_SERIAL);
  Journal journal_;
};

TEST_F(HandDriven, SubmitsInOrderOfTimeAndNeverEarly) {
  after(50, "50");
  after(20, "20 first");
  after(20, "20 second");
  after(0, "now");
  EXPECT_THAT(wordsAfter(19), ElementsAre("now"));
  EXPECT_THAT(wordsAfter(1), ElementsAre("now", "20 first", "20 second"));
  EXPECT_THAT(wordsAfter(1000), ElementsAre("now", "20 first", "20 second", "50"));
}

TEST_F(HandDriven, EndsATimedWait) {
  const auto semaphore = dispatch_semaphore_create(0);
  const auto group = dispatch_group_create();
  dispatch_group_enter(group);
  const auto timeout = dispatch_time(DISPATCH_TIME_NOW, 100);
  std::atomic<int> timedOut{0};
  const auto waiters = dispatch_queue_create("waiters", DISPATCH_QUEUE_CONCURRENT);
  dispatch_async(waiters, [&] { timedOut += dispatch_semaphore_wait(semaphore, timeout) != 0; });
  dispatch_async(waiters, [&] { timedOut += dispatch_group_wait(group, timeout) != 0; });
  clock_->advance(99);
  EXPECT_EQ(timedOut, 0);
  clock_->advance(1);
  flush(waiters);
  EXPECT_EQ(timedOut, 2);
}

/// Shows the time of a call as soon as somebody asks for it, and makes the call at once.
struct ImpatientClock : DispatchClock {
  uint64_t nowNs() const override { return now; }
  void callAt(uint64_t timeNs, std::function<void()> call) override {
    now = timeNs;
    call();
  }
  uint64_t now = 1;
};

TEST(TimedWait, EndsWhenTheClockMovesOnJustAsItBegins) {
  DispatchClock::setCurrent(std::make_shared<ImpatientClock>());
  EXPECT_NE(dispatch_semaphore_wait(dispatch_semaphore_create(0), 100), 0);
  DispatchClock::setCurrent(nullptr);
}

TEST(MonotonicClock, SubmitsInOrderOfTimeNotEarlierThanAsked) {
  const auto clock = DispatchClock::current();
  const uint64_t start = clock->nowNs();
  std::vector<int> order;
  uint64_t ranAt = 0;
  dispatch_after(start + 3 * kMillisecondNs, dispatch_get_main_queue(), [&] {
    order.push_back(2);
    ranAt = clock->nowNs();
  });
  dispatch_after(start + kMillisecondNs, dispatch_get_main_queue(), [&] { order.push_back(1); });
  const bool bothWaited = clock->nowNs() < start + 3 * kMillisecondNs;
  ASSERT_TRUE(RunLoop::main().runUntil([&] { return order.size() == 2; }, kSafetyNs));
  // On a busy machine the first one may have been due before the second was asked for.
  EXPECT_TRUE(!bothWaited || order.front() == 1);
  EXPECT_GE(ranAt, start + 3 * kMillisecondNs);
}

TEST(DispatchTime, AddsWithoutOverflow) {
  using Row = std::tuple<dispatch_time_t, int64_t, dispatch_time_t>;
  for (const auto& [when, delta, expected] :
       {Row{1000, 50, 1050}, Row{1000, -50, 950}, Row{1000, -5000, 1}, Row{DISPATCH_TIME_FOREVER, -1, DISPATCH_TIME_FOREVER},
        Row{DISPATCH_TIME_FOREVER - 5, 10, DISPATCH_TIME_FOREVER}, Row{7, INT64_MIN, 1}}) {
    EXPECT_EQ(dispatch_time(when, delta), expected) << when << " + " << delta;
  }
}

TEST(MonotonicClockDeathTest, DoesNotHoldUpAProcessThatExits) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(
      {
        std::atexit([] { _exit(0); });
        // Threads are there before the time runs, however busy the machine is.
        const auto isWarm = dispatch_semaphore_create(0);
        dispatch_after(0, dispatch_get_global_queue(QOS_CLASS_DEFAULT), [isWarm] { dispatch_semaphore_signal(isWarm); });
        dispatch_semaphore_wait(isWarm, DISPATCH_TIME_FOREVER);
        dispatch_after(DispatchClock::current()->nowNs() + 800 * kMillisecondNs, dispatch_get_global_queue(QOS_CLASS_DEFAULT),
                       [] { _exit(1); });
        std::exit(2);
      },
      ::testing::ExitedWithCode(0), "");
}

}  // namespace
}  // namespace vidloom
