// Notifications: one object tells whoever listens, without knowing them.
#pragma once

#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "vidloom/platform/foundation/NSDictionary.h"

namespace vidloom {

struct NSNotification {
  std::string name;
  std::shared_ptr<const void> object;  ///< who posts; may be null
  NSDictionary userInfo;
};

/// Listens to notifications. Held weakly by the centre.
class NSNotificationObserver {
 public:
  virtual ~NSNotificationObserver() = default;
  /// Called on the thread that posts, within the post. May add and remove observers and post itself.
  virtual void handleNotification(const NSNotification& notification) = 0;
};

/// Passes notifications on. Any thread; no lock is held while observers run.
class NSNotificationCenter {
 public:
  static NSNotificationCenter& defaultCenter();

  /// Registers for notifications of that name (empty: any) posted by that object (null: by anybody). Neither is retained. Whoever
  /// registers twice hears twice.
  void addObserver(const std::shared_ptr<NSNotificationObserver>& observer, const std::string& name,
                   const std::shared_ptr<const void>& object);
  /// Removes all registrations of the observer. Only its address is used, so this may be called in its destructor. When it returns,
  /// no new delivery begins; one that runs on another thread may still be under way.
  void removeObserver(const NSNotificationObserver* observer);
  /// Removes those made with that name (empty: any) and object (null: any).
  void removeObserver(const NSNotificationObserver* observer, const std::string& name, const std::shared_ptr<const void>& object);
  /// Calls every observer concerned, in the order of registration, and returns when all have returned. Observers that are gone, or
  /// removed by one called before, are left out.
  void postNotificationName(const std::string& name, const std::shared_ptr<const void>& object, NSDictionary userInfo = {});

 private:
  struct Registration;
  using RegistrationRef = std::shared_ptr<Registration>;

  std::vector<RegistrationRef> concernedBy(const NSNotification& notification);

  std::mutex mutex_;
  std::vector<RegistrationRef> registrations_;
};

}  // namespace vidloom
