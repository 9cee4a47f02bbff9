#pragma once

// The channel messages the host sends to the instrument, always on channel 1, each formed from
// one performance event. Values are not clamped to 0..127: a full-velocity key (1.0) sends
// velocity 128, a pitch wheel at its top sends data bytes 0 and 128. Key numbers pass unmasked.

#include <cstdint>

#include "platform/foundation/Numbers.h"

namespace midi {

struct ChannelMessage {
  std::uint32_t status = 0, data1 = 0, data2 = 0;
  friend bool operator==(const ChannelMessage&, const ChannelMessage&) = default;
};

// Velocity 0..1 times 128, truncated; negative gives 0.
inline ChannelMessage noteOnMessage(std::int32_t key, float velocity) {
  const std::int32_t scaled = platform::truncateToInt32(velocity * 128.0f);
  return {0x90, static_cast<std::uint32_t>(key),
          static_cast<std::uint32_t>(scaled < 0 ? 0 : scaled)};
}

inline ChannelMessage noteOffMessage(std::int32_t key) {
  return {0x80, static_cast<std::uint32_t>(key), 1};
}

// 0.5 is the centre (bend 8192).
inline ChannelMessage pitchBendMessage(float value) {
  const std::int32_t v = platform::truncateToInt32(value * 16384.0f);
  return {0xE0, static_cast<std::uint32_t>(v & 0x7F), static_cast<std::uint32_t>((v >> 7) & 0xFF)};
}

inline ChannelMessage modWheelMessage(float value) {
  return {0xB0, 1, static_cast<std::uint32_t>(platform::truncateToInt32(double{value} * 127.0))};
}

inline ChannelMessage allSoundOffMessage() {
  return {0xB0, 120, 0};
}

}  // namespace midi
