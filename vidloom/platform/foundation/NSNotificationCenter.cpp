#include "vidloom/platform/foundation/NSNotificationCenter.h"

#include <atomic>

namespace vidloom {

struct NSNotificationCenter::Registration {
  const NSNotificationObserver* address;
  std::weak_ptr<NSNotificationObserver> observer;
  std::string name;
  bool anyObject;
  std::weak_ptr<const void> object;
  std::atomic<bool> removed{false};

  bool hears(const NSNotification& notification) const {
    if (!name.empty() && name != notification.name) return false;
    return anyObject || (notification.object && object.lock() == notification.object);
  }
};

NSNotificationCenter& NSNotificationCenter::defaultCenter() {
  static NSNotificationCenter& instance = *std::make_unique<NSNotificationCenter>().release();
  return instance;
}

void NSNotificationCenter::addObserver(const std::shared_ptr<NSNotificationObserver>& observer, const std::string& name,
                                       const std::shared_ptr<const void>& object) {
  if (!observer) return;
  auto registration = std::make_shared<Registration>();
  registration->address = observer.get();
  registration->observer = observer;
  registration->name = name;
  registration->anyObject = object == nullptr;
  registration->object = object;
  const std::lock_guard lock(mutex_);
  std::erase_if(registrations_, [](const RegistrationRef& known) { return known->observer.expired(); });
  registrations_.push_back(std::move(registration));
}

void NSNotificationCenter::removeObserver(const NSNotificationObserver* observer) { removeObserver(observer, {}, nullptr); }

void NSNotificationCenter::removeObserver(const NSNotificationObserver* observer, const std::string& name,
                                          const std::shared_ptr<const void>& object) {
  const std::lock_guard lock(mutex_);
  std::erase_if(registrations_, [&](const RegistrationRef& known) {
    if (known->address != observer || (!name.empty() && known->name != name)) return false;
    if (object && known->object.lock() != object) return false;
    known->removed = true;
    return true;
  });
}

std::vector<NSNotificationCenter::RegistrationRef> NSNotificationCenter::concernedBy(const NSNotification& notification) {
  std::vector<RegistrationRef> concerned;
  const std::lock_guard lock(mutex_);
  for (const RegistrationRef& known : registrations_) {
    if (known->hears(notification)) concerned.push_back(known);
  }
  return concerned;
}

void NSNotificationCenter::postNotificationName(const std::string& name, const std::shared_ptr<const void>& object,
                                                NSDictionary userInfo) {
  const NSNotification notification{name, object, std::move(userInfo)};
  for (const RegistrationRef& registration : concernedBy(notification)) {
    if (registration->removed) continue;
    if (const auto observer = registration->observer.lock()) observer->handleNotification(notification);
  }
}

}  // namespace vidloom
