#include "vidloom/platform/foundation/NSNotificationCenter.h"

#include <gmock/gmock.h>

namespace vidloom {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class NotificationCenter : public ::testing::Test {
 protected:
  struct Listener : NSNotificationObserver {
    Listener(std::string called, std::vector<std::string>& notes) : name(std::move(called)), journal(notes) {}
    void handleNotification(const NSNotification& notification) override {
      journal.push_back(name + ":" + notification.name);
      if (onNotification) onNotification();
    }
    const std::string name;
    std::vector<std::string>& journal;
    std::function<void()> onNotification;
  };
  std::shared_ptr<Listener> listener(const std::string& name) { return std::make_shared<Listener>(name, journal_); }

  NSNotificationCenter center_;
  std::vector<std::string> journal_;
  const std::shared_ptr<int> here_ = std::make_shared<int>(1), there_ = std::make_shared<int>(2);
};

TEST_F(NotificationCenter, TellsThoseWhoListenToThatNameAndPosterInOrder) {
  const auto one = listener("one"), any = listener("any"), every = listener("every");
  center_.addObserver(one, "end", here_);
  center_.addObserver(any, "end", nullptr);
  center_.addObserver(every, "", nullptr);
  center_.postNotificationName("end", here_);
  EXPECT_THAT(journal_, ElementsAre("one:end", "any:end", "every:end"));
  journal_.clear();
  center_.postNotificationName("end", there_);
  center_.postNotificationName("start", nullptr);
  EXPECT_THAT(journal_, ElementsAre("any:end", "every:end", "every:start"));
}

TEST_F(NotificationCenter, RemovesByAddressAllRegistrationsOrThoseNamed) {
  const auto one = listener("one");
  center_.addObserver(one, "a", nullptr);
  center_.addObserver(one, "b", here_);
  center_.addObserver(one, "b", there_);
  center_.removeObserver(one.get(), "b", here_);
  for (const auto* name : {"a", "b"}) center_.postNotificationName(name, here_);
  center_.postNotificationName("b", there_);
  EXPECT_THAT(journal_, ElementsAre("one:a", "one:b"));
  center_.removeObserver(one.get());
  center_.postNotificationName("a", here_);
  EXPECT_EQ(journal_.size(), 2u);
}

TEST_F(NotificationCenter, LeavesOutWhoIsRemovedOrReleasedDuringThePost) {
  const auto first = listener("first"), removed = listener("removed");
  auto released = listener("released");
  for (const auto& observer : {first, removed, released}) center_.addObserver(observer, "end", nullptr);
  first->onNotification = [&] {
    center_.removeObserver(removed.get());
    released.reset();
    center_.addObserver(first, "other", nullptr);
  };
  center_.postNotificationName("end", nullptr);
  EXPECT_THAT(journal_, ElementsAre("first:end"));
}

TEST_F(NotificationCenter, DoesNotTakeANewObjectForAnOldOneAtItsAddress) {
  const auto one = listener("one");
  int storage = 0;
  const auto borrowed = [&] { return std::shared_ptr<int>(&storage, [](int*) {}); };
  center_.addObserver(one, "end", borrowed());
  center_.postNotificationName("end", borrowed());
  EXPECT_THAT(journal_, IsEmpty());
}

}  // namespace
}  // namespace vidloom
