#include "vidloom/platform/foundation/KeyValueObservable.h"

#include <algorithm>
#include <atomic>

#include "vidloom/platform/foundation/NSLog.h"

namespace vidloom {

struct KeyValueObservable::Registration {
  const KeyValueObserver* address;
  std::weak_ptr<KeyValueObserver> observer;
  std::string keyPath;
  NSKeyValueObservingOptions options;
  const void* context;
  std::atomic<bool> removed{false};
};

void KeyValueObservable::addObserver(const std::shared_ptr<KeyValueObserver>& observer, const std::string& keyPath,
                                     NSKeyValueObservingOptions options, const void* context) {
  if (!observer) return;
  auto registration = std::make_shared<Registration>();
  registration->address = observer.get();
  registration->observer = observer;
  registration->keyPath = keyPath;
  registration->options = options;
  registration->context = context;
  {
    const std::lock_guard lock(mutex_);
    registrations_.push_back(registration);
  }
  if ((options & NSKeyValueObservingOptionInitial) != 0) deliver(*registration);
}

void KeyValueObservable::removeObserver(const KeyValueObserver* observer, const std::string& keyPath) {
  removeNewest(observer, keyPath, nullptr);
}

void KeyValueObservable::removeObserver(const KeyValueObserver* observer, const std::string& keyPath, const void* context) {
  removeNewest(observer, keyPath, &context);
}

void KeyValueObservable::removeNewest(const KeyValueObserver* observer, const std::string& keyPath, const void* const* context) {
  {
    const std::lock_guard lock(mutex_);
    const auto found = std::find_if(registrations_.rbegin(), registrations_.rend(), [&](const RegistrationRef& known) {
      return known->address == observer && known->keyPath == keyPath && (context == nullptr || known->context == *context);
    });
    if (found != registrations_.rend()) {
      (*found)->removed = true;
      registrations_.erase(std::next(found).base());
      return;
    }
  }
  NSLog("removeObserver: not registered as an observer of the key path \"" + keyPath + "\"; nothing is removed");
}

void KeyValueObservable::deliver(Registration& registration) {
  const auto observer = registration.observer.lock();
  if (!observer || registration.removed) return;
  NSDictionary change{{NSKeyValueChangeKindKey, NSKeyValueChangeSetting}};
  if ((registration.options & NSKeyValueObservingOptionNew) != 0) {
    change.emplace(NSKeyValueChangeNewKey, valueForKey(registration.keyPath));
  }
  observer->observeValueForKeyPath(registration.keyPath, this, change, registration.context);
}

void KeyValueObservable::didChangeValueForKey(const std::string& key) {
  std::vector<RegistrationRef> concerned;
  {
    const std::lock_guard lock(mutex_);
    for (const RegistrationRef& known : registrations_) {
      if (known->keyPath == key) concerned.push_back(known);
    }
  }
  for (const RegistrationRef& registration : concerned) deliver(*registration);
}

}  // namespace vidloom
