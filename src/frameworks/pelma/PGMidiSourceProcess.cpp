// A source's receive-thread side: the MIDI system's receive thread calls it (on JACK the audio
// thread, inside the process callback), so nothing here allocates, locks or waits.

#include <time.h>

#include <algorithm>

#include "frameworks/pelma/PGMidi.h"
#include "platform/midi/MIDIPacketList.h"

namespace {

std::uint64_t monotonicNanoseconds() noexcept {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<std::uint64_t>(now.tv_sec) * 1000000000u +
         static_cast<std::uint64_t>(now.tv_nsec);
}

}  // namespace

// The receive thread.
void PGMidiSource::receive(void* source, std::uint32_t /*frame*/, const std::uint8_t* data,
                           std::size_t size) noexcept {
  static_cast<PGMidiSource*>(source)->deliver(monotonicNanoseconds(), data, size);
}

// The receive thread.
void PGMidiSource::deliver(std::uint64_t timeStamp, const std::uint8_t* data,
                           std::size_t length) noexcept {
  if (!isActive()) return;
  delivering_.fetch_add(1);
  track(data, length);
  handToDelegates(timeStamp, data, length);
  delivering_.fetch_sub(1);
}

// The receive thread.
void PGMidiSource::track(const std::uint8_t* data, std::size_t length) noexcept {
  if (length < 3 || (data[0] & 0xE0) != 0x80) return;  // note off or note on, whole
  const std::size_t bit = (data[0] & 0x0F) * 256u + data[1];
  const std::uint64_t mask = std::uint64_t{1} << (bit % 64);
  if ((data[0] & 0xF0) == 0x90 && data[2] > 0) {
    sounding_[bit / 64].fetch_or(mask, std::memory_order_relaxed);
  } else {
    sounding_[bit / 64].fetch_and(~mask, std::memory_order_relaxed);
  }
}

// The receive thread, and the main thread for the note offs of releaseChannel.
void PGMidiSource::handToDelegates(std::uint64_t timeStamp, const std::uint8_t* data,
                                   std::size_t length) noexcept {
  alignas(8) std::uint8_t buffer[midi::kPacketCountSize + midi::kPacketHeaderSize + kMaxPacketData +
                                 midi::kPacketListSlack + 4];
  for (std::size_t done = 0; done < length;) {
    const auto chunk = static_cast<std::uint16_t>(std::min(kMaxPacketData, length - done));
    midi::PacketListBuilder list(buffer, sizeof buffer);
    list.add(timeStamp, data + done, chunk);
    for (auto& slot : delegates_) {
      if (PGMidiSourceDelegate* delegate = slot.load()) {
        delegate->midiReceived(this, list.data(), list.size());
      }
    }
    done += chunk;
  }
}
