#pragma once

// A single-producer, single-consumer ring of variable-size messages (a 32-bit size, then the
// bytes). Lock-free and allocation-free after construction: for plug-in worker requests and
// replies and for log lines written on the audio thread.

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <optional>
#include <vector>

namespace platform {

class ByteRing {
 public:
  explicit ByteRing(std::size_t capacity) : buffer_(roundUp(capacity)), mask_(buffer_.size() - 1) {}

  // False (and nothing written) when the message does not fit.
  bool write(const void* data, std::uint32_t size) noexcept {
    const std::size_t head = head_.load(std::memory_order_acquire);
    const std::size_t tail = tail_.load(std::memory_order_relaxed);
    if (buffer_.size() - (tail - head) < sizeof(size) + size) return false;
    copyIn(tail, &size, sizeof(size));
    copyIn(tail + sizeof(size), data, size);
    tail_.store(tail + sizeof(size) + size, std::memory_order_release);
    return true;
  }

  // Reads the next message into `data` and returns its size (zero-length messages are messages
  // too); nothing when the ring is empty. A message larger than `capacity` is skipped, so that
  // it cannot block the ring.
  std::optional<std::uint32_t> read(void* data, std::uint32_t capacity) noexcept {
    for (;;) {
      const std::size_t head = head_.load(std::memory_order_relaxed);
      if (tail_.load(std::memory_order_acquire) == head) return std::nullopt;
      std::uint32_t size = 0;
      copyOut(head, &size, sizeof(size));
      if (size <= capacity) copyOut(head + sizeof(size), data, size);
      head_.store(head + sizeof(size) + size, std::memory_order_release);
      if (size <= capacity) return size;
    }
  }

 private:
  static std::size_t roundUp(std::size_t n) {
    std::size_t size = 64;
    while (size < n)
      size *= 2;
    return size;
  }
  void copyIn(std::size_t at, const void* data, std::size_t size) noexcept {
    const auto* bytes = static_cast<const std::uint8_t*>(data);
    for (std::size_t i = 0; i < size; ++i)
      buffer_[(at + i) & mask_] = bytes[i];
  }
  void copyOut(std::size_t at, void* data, std::size_t size) const noexcept {
    auto* bytes = static_cast<std::uint8_t*>(data);
    for (std::size_t i = 0; i < size; ++i)
      bytes[i] = buffer_[(at + i) & mask_];
  }

  std::vector<std::uint8_t> buffer_;
  std::size_t mask_;
  alignas(64) std::atomic<std::size_t> head_{0};
  alignas(64) std::atomic<std::size_t> tail_{0};
};

}  // namespace platform
