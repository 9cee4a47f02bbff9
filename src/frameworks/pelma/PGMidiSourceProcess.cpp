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
  delivering_.fetch_sub(1);
}
