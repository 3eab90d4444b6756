// Observing the properties of an object by their names.
#pragma once

#include <any>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "vidloom/platform/foundation/NSDictionary.h"

namespace vidloom {

inline const std::string NSKeyValueChangeKindKey = "kind";
/// The new value: numbers as numbers, an empty std::any for nil.
inline const std::string NSKeyValueChangeNewKey = "new";
inline constexpr int64_t NSKeyValueChangeSetting = 1;

using NSKeyValueObservingOptions = uint32_t;
inline constexpr NSKeyValueObservingOptions NSKeyValueObservingOptionNew = 1;
inline constexpr NSKeyValueObservingOptions NSKeyValueObservingOptionInitial = 4;

class KeyValueObservable;

/// Hears of changes. Held weakly by what it observes.
class KeyValueObserver {
 public:
  virtual ~KeyValueObserver() = default;
  /// Called on the thread that makes the change, within the change. May add and remove observers. `context` is the one given at
  /// registration; observers compare its address.
  virtual void observeValueForKeyPath(const std::string& keyPath, KeyValueObservable* object, const NSDictionary& change,
                                      const void* context) = 0;
};

/// An object whose properties can be observed. Registering and removing are safe on any thread; no lock is held while observers
/// run.
class KeyValueObservable {
 public:
  KeyValueObservable() = default;
  virtual ~KeyValueObservable() = default;
  KeyValueObservable(const KeyValueObservable&) = delete;
  KeyValueObservable& operator=(const KeyValueObservable&) = delete;

  /// The present value of a property; an empty std::any for nil and for names that it does not have. Any thread.
  virtual std::any valueForKey(const std::string& key) const = 0;

  /// Whoever registers twice hears twice. With NSKeyValueObservingOptionInitial the observer is called at once, within this call.
  void addObserver(const std::shared_ptr<KeyValueObserver>& observer, const std::string& keyPath,
                   NSKeyValueObservingOptions options, const void* context);
  /// Removes the newest registration of the observer for that key path, with that context or, without one, with any. Only the
  /// observer's address is used, so this may be called in its destructor. One that was never added is logged.
  void removeObserver(const KeyValueObserver* observer, const std::string& keyPath);
  void removeObserver(const KeyValueObserver* observer, const std::string& keyPath, const void* context);

 protected:
  /// To be called after the change, with no lock held. Observers are called even where the value is what it was.
  void didChangeValueForKey(const std::string& key);

 private:
  struct Registration;
  using RegistrationRef = std::shared_ptr<Registration>;

  void deliver(Registration& registration);
  void removeNewest(const KeyValueObserver* observer, const std::string& keyPath, const void* const* context);

  std::mutex mutex_;
  std::vector<RegistrationRef> registrations_;
};

}  // namespace vidloom
