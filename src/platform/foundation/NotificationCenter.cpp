#include "platform/foundation/NotificationCenter.h"

#include <algorithm>
#include <atomic>

namespace platform {

struct NotificationCenter::Observer {
  ObserverId id;
  std::string name;
  const void* sender;
  const void* owner;
  Handler handler;
  std::atomic<bool> removed{false};
};

NotificationCenter& NotificationCenter::defaultCenter() {
  static NotificationCenter center;
  return center;
}

NotificationCenter::ObserverId NotificationCenter::addObserver(std::string name, const void* sender,
                                                               Handler handler, const void* owner) {
  std::lock_guard lock(mutex_);
  auto observer = std::make_shared<Observer>();
  observer->id = nextId_++;
  observer->name = std::move(name);
  observer->sender = sender;
  observer->owner = owner;
  observer->handler = std::move(handler);
  observers_.push_back(observer);
  return observer->id;
}

void NotificationCenter::removeObserver(ObserverId id) {
  std::lock_guard lock(mutex_);
  std::erase_if(observers_, [id](const auto& observer) {
    if (observer->id != id) return false;
    observer->removed = true;
    return true;
  });
}

void NotificationCenter::removeObserver(const void* owner, std::string_view name) {
  std::lock_guard lock(mutex_);
  std::erase_if(observers_, [&](const auto& observer) {
    if (observer->owner != owner || (!name.empty() && observer->name != name)) return false;
    observer->removed = true;
    return true;
  });
}

void NotificationCenter::post(const Notification& notification) {
  std::vector<std::shared_ptr<Observer>> matching;
  {
    std::lock_guard lock(mutex_);
    for (const auto& observer : observers_) {
      if (observer->name == notification.name &&
          (observer->sender == nullptr || observer->sender == notification.object)) {
        matching.push_back(observer);
      }
    }
  }
  // Handlers run without the lock so that they can post, add and remove observers themselves.
  for (const auto& observer : matching) {
    if (!observer->removed) observer->handler(notification);
  }
}

void NotificationCenter::postNotificationName(std::string name, const void* object) {
  post(Notification{std::move(name), object, {}});
}

std::size_t NotificationCenter::observerCount() const {
  std::lock_guard lock(mutex_);
  return observers_.size();
}

}  // namespace platform
