#include "vidloom/platform/foundation/KeyValueObservable.h"

#include <gmock/gmock.h>

#include "tests/support/Fixtures.h"

namespace vidloom {
namespace {

using ::testing::ElementsAre;
using ::testing::SizeIs;

class Door : public KeyValueObservable {
 public:
  using KeyValueObservable::didChangeValueForKey;
  void setStatus(int status) {
    status_ = status;
    didChangeValueForKey("status");
  }
  std::any valueForKey(const std::string& key) const override { return key == "status" ? std::any(status_) : std::any(); }

 private:
  int status_ = 0;
};

struct Watcher : KeyValueObserver {
  void observeValueForKeyPath(const std::string& keyPath, KeyValueObservable* object, const NSDictionary& change,
                              const void* context) override {
    double value = -1, kind = 0;
    numberValue(change, NSKeyValueChangeNewKey, value);
    EXPECT_TRUE(numberValue(change, NSKeyValueChangeKindKey, kind) && kind == 1);
    heard.push_back(keyPath + "=" + std::to_string(static_cast<int>(value)));
    lastChange = change;
    lastContext = context;
    lastObject = object;
  }
  std::vector<std::string> heard;
  NSDictionary lastChange;
  const void* lastContext = nullptr;
  KeyValueObservable* lastObject = nullptr;
};

constexpr char kContext = 0, kOtherContext = 0;

TEST(KeyValueObserving, TellsOfEachAnnouncedChangeWithTheNewValueWhereAskedFor) {
  Door door;
  const auto watcher = std::make_shared<Watcher>(), plain = std::make_shared<Watcher>(), eager = std::make_shared<Watcher>();
  door.addObserver(watcher, "status", NSKeyValueObservingOptionNew, &kContext);
  door.addObserver(plain, "status", 0, nullptr);
  door.setStatus(1);
  door.setStatus(1);
  door.didChangeValueForKey("error");
  EXPECT_THAT(watcher->heard, ElementsAre("status=1", "status=1"));
  EXPECT_THAT(plain->lastChange, SizeIs(1)) << "the kind only";
  EXPECT_EQ(watcher->lastContext, &kContext);
  EXPECT_EQ(watcher->lastObject, &door);
  door.addObserver(eager, "error", NSKeyValueObservingOptionNew | NSKeyValueObservingOptionInitial, nullptr);
  ASSERT_THAT(eager->heard, SizeIs(1));
  EXPECT_FALSE(eager->lastChange.at(NSKeyValueChangeNewKey).has_value()) << "nil is an empty value";
}

TEST(KeyValueObserving, RemovesOneRegistrationAtATimeAndLogsTheRemovalOfNone) {
  Door door;
  const auto watcher = std::make_shared<Watcher>();
  for (const char* context : {&kContext, &kOtherContext}) {
    door.addObserver(watcher, "status", NSKeyValueObservingOptionNew, context);
  }
  door.removeObserver(watcher.get(), "status", &kContext);
  door.setStatus(2);
  EXPECT_THAT(watcher->heard, ElementsAre("status=2"));
  EXPECT_EQ(watcher->lastContext, &kOtherContext);
  door.removeObserver(watcher.get(), "status");
  const testing::LogCapture log;
  door.removeObserver(watcher.get(), "status", &kOtherContext);
  EXPECT_THAT(log.lines(), SizeIs(1)) << "what was never added or is gone";
  door.setStatus(3);
  EXPECT_THAT(watcher->heard, SizeIs(1));
}

TEST(KeyValueObserving, SurvivesObserversThatGoAway) {
  Door door;
  auto watcher = std::make_shared<Watcher>();
  const auto watch = std::weak_ptr(watcher);
  door.addObserver(watcher, "status", NSKeyValueObservingOptionNew, nullptr);
  const KeyValueObserver* address = watcher.get();
  watcher.reset();
  EXPECT_TRUE(watch.expired());
  door.setStatus(1);
  door.removeObserver(address, "status");
}

}  // namespace
}  // namespace vidloom
