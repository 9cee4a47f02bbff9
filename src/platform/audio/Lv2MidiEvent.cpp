#include "platform/audio/Lv2MidiEvent.h"

#include <algorithm>

namespace platform {

namespace {

std::uint8_t dataByte(std::uint32_t value) noexcept {
  return static_cast<std::uint8_t>(std::min<std::uint32_t>(value, 127));
}

}  // namespace

// Any thread, the audio thread too.
Lv2MidiEvent lv2MidiEvent(std::uint32_t status, std::uint32_t data1, std::uint32_t data2) noexcept {
  if (status < 0x80 || status > 0xFF) return {};
  const auto s = static_cast<std::uint8_t>(status);
  switch (s >> 4) {
    case 0xC:
    case 0xD:
      return {2, {s, dataByte(data1), 0}};
    case 0xE: {
      const std::uint64_t bend = std::min<std::uint64_t>(std::uint64_t{data2} * 128 + data1, 16383);
      return {3, {s, static_cast<std::uint8_t>(bend & 0x7F), static_cast<std::uint8_t>(bend >> 7)}};
    }
    case 0xF:
      switch (s) {
        case 0xF1:  // time code quarter frame
        case 0xF3:  // song select
          return {2, {s, dataByte(data1), 0}};
        case 0xF2:  // song position
          return {3, {s, dataByte(data1), dataByte(data2)}};
        case 0xF6:  // tune request
        case 0xF8:  // real-time messages
        case 0xFA:
        case 0xFB:
        case 0xFC:
        case 0xFE:
        case 0xFF:
          return {1, {s, 0, 0}};
        default:  // system exclusive, its end, undefined
          return {};
      }
    default:  // note off, note on, key pressure, control change
      return {3, {s, dataByte(data1), dataByte(data2)}};
  }
}

}  // namespace platform
