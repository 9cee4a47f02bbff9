#pragma once

// Hands immutable snapshots of a value from one writer thread to real-time readers.
//
// The writer (the main thread) publishes a new snapshot with one atomic pointer exchange. A reader
// takes the current snapshot with acquire(): no lock, no allocation, no waiting; the snapshot
// stays valid until the reader's next acquire() or release(). Each reader announces the snapshot
// it holds in its own slot (a hazard pointer), and the writer frees a replaced snapshot only once
// no slot names it, always on the writer's thread.

#include <array>
#include <atomic>
#include <cstddef>
#include <memory>
#include <stdexcept>
#include <utility>
#include <vector>

namespace platform {

template <typename T>
class SnapshotPublisher {
 public:
  static constexpr std::size_t kMaxReaders = 4;

  // One reader's slot. Create it on the writer's thread; use it on one reader thread only.
  class Reader {
   public:
    Reader() = default;
    Reader(Reader&& other) noexcept { *this = std::move(other); }
    Reader& operator=(Reader&& other) noexcept {
      if (this != &other) {
        reset();
        publisher_ = std::exchange(other.publisher_, nullptr);
        slot_ = other.slot_;
      }
      return *this;
    }
    ~Reader() { reset(); }

    // Returns the newest snapshot and keeps it alive until the next acquire() or release().
    const T* acquire() noexcept {
      if (!publisher_) return nullptr;
      std::atomic<const T*>& hazard = publisher_->hazards_[slot_];
      const T* snapshot = publisher_->current_.load();
      for (;;) {
        hazard.store(snapshot);
        // Once announced, the writer cannot free it; check that it was not replaced meanwhile.
        const T* again = publisher_->current_.load();
        if (again == snapshot) return snapshot;
        snapshot = again;
      }
    }

    void release() noexcept {
      if (publisher_) publisher_->hazards_[slot_].store(nullptr);
    }

    explicit operator bool() const { return publisher_ != nullptr; }

   private:
    friend class SnapshotPublisher;
    Reader(SnapshotPublisher* publisher, std::size_t slot) : publisher_(publisher), slot_(slot) {}
    void reset() {
      if (!publisher_) return;
      release();
      publisher_->slotTaken_[slot_].store(false);
      publisher_ = nullptr;
    }
    SnapshotPublisher* publisher_ = nullptr;
    std::size_t slot_ = 0;
  };

  explicit SnapshotPublisher(std::unique_ptr<const T> initial) : current_(initial.release()) {}
  SnapshotPublisher(const SnapshotPublisher&) = delete;
  SnapshotPublisher& operator=(const SnapshotPublisher&) = delete;
  // Readers must be gone (or released) before the publisher is destroyed.
  ~SnapshotPublisher() {
    delete current_.load();
    for (const T* retired : retired_)
      delete retired;
  }

  // Writer thread: makes `next` the current snapshot and frees the replaced ones no reader holds.
  void publish(std::unique_ptr<const T> next) {
    retired_.push_back(current_.exchange(next.release()));
    reclaim();
  }

  // Writer thread: the current snapshot.
  const T& current() const { return *current_.load(); }

  // Writer thread: frees replaced snapshots that no reader holds any more.
  void reclaim() {
    std::erase_if(retired_, [this](const T* retired) {
      for (const auto& hazard : hazards_) {
        if (hazard.load() == retired) return false;
      }
      delete retired;
      return true;
    });
  }

  // Writer thread: replaced snapshots not yet freed because a reader may still hold them.
  std::size_t retiredCount() const { return retired_.size(); }

  // Writer thread: a new reader slot; throws std::length_error when all kMaxReaders are taken.
  Reader makeReader() {
    for (std::size_t slot = 0; slot < kMaxReaders; ++slot) {
      bool expected = false;
      if (slotTaken_[slot].compare_exchange_strong(expected, true)) return Reader(this, slot);
    }
    throw std::length_error("SnapshotPublisher: too many readers");
  }

 private:
  std::atomic<const T*> current_;
  std::array<std::atomic<const T*>, kMaxReaders> hazards_{};
  std::array<std::atomic<bool>, kMaxReaders> slotTaken_{};
  std::vector<const T*> retired_;
};

}  // namespace platform
