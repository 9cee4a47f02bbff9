#pragma once

// The plug-in boundary for MIDI: every message the host hands an LV2 instrument is made valid
// MIDI here, and only here. The host's callers keep their own values up to this point (a
// full-velocity key is sent as velocity 128, a pitch wheel at its top as data bytes 0 and 128);
// an LV2 MIDI event must be valid MIDI, and most instruments read a data byte of 128 as 0.

#include <cstdint>

namespace platform {

struct Lv2MidiEvent {
  std::uint8_t size = 0;  // 0: nothing valid to send
  std::uint8_t bytes[3] = {0, 0, 0};
};

// Data values above 127 become 127; a pitch bend's 14-bit value (data 2 × 128 + data 1) is clamped
// to 16383; the event has its message's length by status (a program change or channel pressure
// two bytes, a system message its own length). A status that is no status byte, and the system
// bytes that are no whole message alone (system exclusive, its end, the undefined ones), give
// size 0.
Lv2MidiEvent lv2MidiEvent(std::uint32_t status, std::uint32_t data1, std::uint32_t data2) noexcept;

}  // namespace platform
