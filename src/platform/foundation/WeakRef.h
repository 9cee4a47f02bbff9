#pragma once

// Weak references to objects that are not owned through shared pointers (widgets, screens).
// An object that may be held weakly derives from WeaklyReferenceable; a WeakRef to it reads as
// null once the object has been destroyed. For use on one thread (the main thread).

#include <memory>

namespace platform {

class WeaklyReferenceable {
 public:
  WeaklyReferenceable() = default;
  // A copy is a different object: it gets its own lifetime token.
  WeaklyReferenceable(const WeaklyReferenceable&) {}
  WeaklyReferenceable& operator=(const WeaklyReferenceable&) { return *this; }

 protected:
  ~WeaklyReferenceable() = default;

 private:
  template <typename T>
  friend class WeakRef;
  std::shared_ptr<int> alive_ = std::make_shared<int>(0);
};

template <typename T>
class WeakRef {
 public:
  WeakRef() = default;
  WeakRef(T* object) { *this = object; }  // NOLINT: implicit, like assigning a pointer
  WeakRef& operator=(T* object) {
    object_ = object;
    alive_ =
        object ? std::weak_ptr<int>(object->WeaklyReferenceable::alive_) : std::weak_ptr<int>();
    return *this;
  }

  // The object, or null once it has been destroyed.
  T* get() const { return alive_.expired() ? nullptr : object_; }

 private:
  T* object_ = nullptr;
  std::weak_ptr<int> alive_;
};

}  // namespace platform
