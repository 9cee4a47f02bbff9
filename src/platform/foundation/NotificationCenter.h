#pragma once

// An in-process notification centre: observers register for a notification name (optionally
// from one sender only) and are called synchronously, on the posting thread, in registration
// order. Observers may add or remove observers while a notification is being delivered; one
// removed during delivery is not called afterwards.

#include <any>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

namespace platform {

struct Notification {
  std::string name;
  const void* object = nullptr;              // the sender, if any
  std::map<std::string, std::any> userInfo;  // extra values, by key
};

class NotificationCenter {
 public:
  using ObserverId = std::uint64_t;
  using Handler = std::function<void(const Notification&)>;

  static NotificationCenter& defaultCenter();

  // Calls `handler` for every notification `name` whose sender is `sender` (any sender when
  // null). `owner` names the observing object, so it can be removed with removeObserver(owner).
  ObserverId addObserver(std::string name, const void* sender, Handler handler,
                         const void* owner = nullptr);

  void removeObserver(ObserverId id);
  // Removes the observers registered by `owner`: all of them, or only those for `name`.
  void removeObserver(const void* owner, std::string_view name = {});

  void post(const Notification& notification);
  void postNotificationName(std::string name, const void* object = nullptr);

  std::size_t observerCount() const;

 private:
  struct Observer;
  mutable std::mutex mutex_;
  std::vector<std::shared_ptr<Observer>> observers_;
  ObserverId nextId_ = 1;
};

}  // namespace platform
