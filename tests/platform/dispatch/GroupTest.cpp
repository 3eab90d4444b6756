#include "tests/platform/dispatch/DispatchTesting.h"
#include "vidloom/platform/dispatch/RunLoop.h"

namespace vidloom {
namespace {

TEST(Group, NotifiesOnceWhenTheLastOneLeavesAndCanBeUsedAgain) {
  const auto group = dispatch_group_create();
  const auto queue = dispatch_queue_create("notified", DISPATCH_QUEUE_SERIAL);
  int notified = 0;
  dispatch_group_notify(group, dispatch_get_main_queue(), [&] { --notified; });
  EXPECT_EQ(notified, 0) << "not inside the call";
  EXPECT_TRUE(RunLoop::main().poll());
  EXPECT_EQ(std::exchange(notified, 0), -1) << "empty already";
  for (int round = 1; round <= 2; ++round) {
    dispatch_group_enter(group);
    dispatch_group_enter(group);
    dispatch_group_notify(group, queue, [&] { ++notified; });
    dispatch_group_leave(group);
    flush(queue);
    EXPECT_EQ(notified, round - 1);
    EXPECT_NE(dispatch_group_wait(group, DISPATCH_TIME_NOW), 0);
    dispatch_group_leave(group);
    flush(queue);
    EXPECT_EQ(notified, round);
    EXPECT_EQ(dispatch_group_wait(group, DISPATCH_TIME_NOW), 0);
  }
}

TEST(Group, HasReleasedTheBlocksOfItsMembersWhenItIsEmpty) {
  const auto group = dispatch_group_create();
  const auto queue = dispatch_queue_create("work", DISPATCH_QUEUE_CONCURRENT);
  auto object = std::make_shared<int>(1);
  const auto watch = std::weak_ptr(object);
  for (int i = 0; i < 20; ++i) dispatch_group_async(group, queue, [object] {});
  object.reset();
  EXPECT_EQ(dispatch_group_wait(group, DISPATCH_TIME_FOREVER), 0);
  EXPECT_TRUE(watch.expired());
}

TEST(Group, DropsItsNotificationsWhenItGoesAwayEntered) {
  auto group = dispatch_group_create();
  auto object = std::make_shared<int>(1);
  const auto watch = std::weak_ptr(object);
  dispatch_group_enter(group);
  dispatch_group_notify(group, dispatch_get_main_queue(), [object = std::move(object)] { FAIL(); });
  group.reset();
  EXPECT_TRUE(watch.expired());
  EXPECT_FALSE(RunLoop::main().poll());
}

TEST(GroupDeathTest, StopsTheProgramForOneLeaveTooMany) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_DEATH(dispatch_group_leave(dispatch_group_create()), "Unbalanced call to dispatch_group_leave\\(\\)");
}

TEST(Semaphore, CountsSignalsAndRefusesANegativeStart) {
  EXPECT_EQ(dispatch_semaphore_create(-1), nullptr);
  const auto semaphore = dispatch_semaphore_create(1);
  dispatch_semaphore_signal(semaphore);
  EXPECT_EQ(dispatch_semaphore_wait(semaphore, DISPATCH_TIME_FOREVER), 0);
  EXPECT_EQ(dispatch_semaphore_wait(semaphore, DISPATCH_TIME_NOW), 0);
  EXPECT_NE(dispatch_semaphore_wait(semaphore, DISPATCH_TIME_NOW), 0);
}

}  // namespace
}  // namespace vidloom
