#pragma once

// The MIDI messages of one audio block, each at a frame offset inside the block. Fixed capacity,
// so that the audio thread can fill it without allocating.

#include <array>
#include <cstddef>
#include <cstdint>

namespace platform {

struct MidiEvent {
  std::uint32_t frame = 0;
  std::uint8_t size = 3;
  std::uint8_t bytes[3] = {0, 0, 0};

  bool isNoteOff() const {
    return (bytes[0] & 0xF0) == 0x80 || ((bytes[0] & 0xF0) == 0x90 && bytes[2] == 0);
  }
};

class MidiBlock {
 public:
  static constexpr std::size_t kCapacity = 1024;

  // False when the block is full (the message is dropped).
  bool add(const MidiEvent& event) noexcept {
    if (count_ == kCapacity) return false;
    events_[count_++] = event;
    return true;
  }
  void clear() noexcept { count_ = 0; }
  std::size_t size() const noexcept { return count_; }
  const MidiEvent& operator[](std::size_t i) const noexcept { return events_[i]; }
  const MidiEvent* begin() const noexcept { return events_.data(); }
  const MidiEvent* end() const noexcept { return events_.data() + count_; }

  // Orders the events from `first` on by frame; at one frame note offs go first, so that a key
  // that ends and starts again at that frame sounds again. Otherwise the order is kept.
  void sortFrom(std::size_t first) noexcept {
    for (std::size_t i = first + 1; i < count_; ++i) {
      const MidiEvent event = events_[i];
      std::size_t j = i;
      while (j > first && goesBefore(event, events_[j - 1])) {
        events_[j] = events_[j - 1];
        --j;
      }
      events_[j] = event;
    }
  }

  // Orders all events by frame only, keeping the order of events at the same frame.
  void sortByFrame() noexcept {
    for (std::size_t i = 1; i < count_; ++i) {
      const MidiEvent event = events_[i];
      std::size_t j = i;
      while (j > 0 && event.frame < events_[j - 1].frame) {
        events_[j] = events_[j - 1];
        --j;
      }
      events_[j] = event;
    }
  }

 private:
  static bool goesBefore(const MidiEvent& a, const MidiEvent& b) noexcept {
    if (a.frame != b.frame) return a.frame < b.frame;
    return a.isNoteOff() && !b.isNoteOff();
  }

  std::array<MidiEvent, kCapacity> events_{};
  std::size_t count_ = 0;
};

}  // namespace platform
