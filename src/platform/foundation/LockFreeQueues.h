#pragma once

// Bounded lock-free queues for handing small values between threads without locks, waiting or
// allocation after construction. A push into a full queue fails and leaves the queue unchanged.

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <optional>

namespace platform {

// One producer thread, one consumer thread.
template <typename T, std::size_t Capacity>
class SpscQueue {
  static_assert((Capacity & (Capacity - 1)) == 0, "Capacity must be a power of two");

 public:
  bool push(const T& value) noexcept {
    const std::size_t tail = tail_.load(std::memory_order_relaxed);
    if (tail - head_.load(std::memory_order_acquire) == Capacity) return false;
    slots_[tail & (Capacity - 1)] = value;
    tail_.store(tail + 1, std::memory_order_release);
    return true;
  }

  std::optional<T> pop() noexcept {
    const std::size_t head = head_.load(std::memory_order_relaxed);
    if (head == tail_.load(std::memory_order_acquire)) return std::nullopt;
    T value = slots_[head & (Capacity - 1)];
    head_.store(head + 1, std::memory_order_release);
    return value;
  }

  bool empty() const noexcept {
    return head_.load(std::memory_order_acquire) == tail_.load(std::memory_order_acquire);
  }

 private:
  alignas(64) std::atomic<std::size_t> head_{0};
  alignas(64) std::atomic<std::size_t> tail_{0};
  std::array<T, Capacity> slots_{};
};

// Any number of producer threads, one consumer thread. Each producer's values come out in the
// order that producer pushed them. A producer never waits for another; the consumer stops at a
// slot whose producer has claimed it but not yet filled it, and finds it on its next pop.
template <typename T, std::size_t Capacity>
class MpscQueue {
  static_assert((Capacity & (Capacity - 1)) == 0, "Capacity must be a power of two");

 public:
  MpscQueue() {
    for (std::size_t i = 0; i < Capacity; ++i)
      cells_[i].sequence.store(i);
  }

  bool push(const T& value) noexcept {
    std::size_t position = tail_.load(std::memory_order_relaxed);
    for (;;) {
      Cell& cell = cells_[position & (Capacity - 1)];
      const std::size_t sequence = cell.sequence.load(std::memory_order_acquire);
      const auto difference =
          static_cast<std::intptr_t>(sequence) - static_cast<std::intptr_t>(position);
      if (difference == 0) {
        if (tail_.compare_exchange_weak(position, position + 1, std::memory_order_relaxed)) {
          cell.value = value;
          cell.sequence.store(position + 1, std::memory_order_release);
          return true;
        }
      } else if (difference < 0) {
        return false;  // full
      } else {
        position = tail_.load(std::memory_order_relaxed);
      }
    }
  }

  std::optional<T> pop() noexcept {
    Cell& cell = cells_[head_ & (Capacity - 1)];
    if (cell.sequence.load(std::memory_order_acquire) != head_ + 1) return std::nullopt;
    T value = cell.value;
    cell.sequence.store(head_ + Capacity, std::memory_order_release);
    ++head_;
    return value;
  }

 private:
  struct Cell {
    std::atomic<std::size_t> sequence;
    T value;
  };
  alignas(64) std::atomic<std::size_t> tail_{0};
  alignas(64) std::size_t head_ = 0;  // consumer only
  std::array<Cell, Capacity> cells_{};
};

}  // namespace platform
