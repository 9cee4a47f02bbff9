#pragma once

// Network byte order: numbers read from and written to datagrams at any alignment.

#include <cstdint>

namespace rtp_midi {

inline std::uint16_t read16(const std::uint8_t* at) {
  return static_cast<std::uint16_t>(at[0] << 8 | at[1]);
}
inline std::uint32_t read32(const std::uint8_t* at) {
  return std::uint32_t{at[0]} << 24 | std::uint32_t{at[1]} << 16 | std::uint32_t{at[2]} << 8 |
         at[3];
}
inline std::uint64_t read64(const std::uint8_t* at) {
  return std::uint64_t{read32(at)} << 32 | read32(at + 4);
}
inline void write16(std::uint8_t* at, std::uint16_t value) {
  at[0] = static_cast<std::uint8_t>(value >> 8);
  at[1] = static_cast<std::uint8_t>(value);
}
inline void write32(std::uint8_t* at, std::uint32_t value) {
  for (int i = 0; i < 4; ++i)
    at[i] = static_cast<std::uint8_t>(value >> (24 - 8 * i));
}
inline void write64(std::uint8_t* at, std::uint64_t value) {
  write32(at, static_cast<std::uint32_t>(value >> 32));
  write32(at + 4, static_cast<std::uint32_t>(value));
}

}  // namespace rtp_midi
