#pragma once

// The packet list that MIDI sources hand to their delegates: a 32-bit packet count, then the
// packets, each a 64-bit time stamp, a 16-bit byte length and that many data bytes. Every packet
// (and the count) starts at an offset that is a multiple of 4 from the start of the list; numbers
// are in the machine's byte order. Lists are built into a caller's buffer, never allocating, so
// that a MIDI receive thread can build one per message.

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace midi {

inline constexpr std::size_t kPacketCountSize = 4;
inline constexpr std::size_t kPacketHeaderSize = 10;  // time stamp, length
// Zero bytes kept after the data of the list's last packet, so that reading "the two bytes that
// follow" a status byte at the very end never leaves the list.
inline constexpr std::size_t kPacketListSlack = 2;

constexpr std::size_t alignedTo4(std::size_t offset) {
  return (offset + 3) & ~std::size_t{3};
}

// Writes a packet list into `buffer`. The buffer must stay valid while the list is used.
class PacketListBuilder {
 public:
  PacketListBuilder(std::uint8_t* buffer, std::size_t capacity);

  // Appends a packet; false (and nothing written) when it does not fit with its slack.
  bool add(std::uint64_t timeStamp, const std::uint8_t* data, std::uint16_t length);

  const std::uint8_t* data() const { return buffer_; }
  // The list's size including the slack after the last packet.
  std::size_t size() const { return end_ + kPacketListSlack; }
  std::uint32_t count() const { return count_; }

 private:
  std::uint8_t* buffer_;
  std::size_t capacity_;
  std::size_t end_;  // just past the last packet's data
  std::uint32_t count_ = 0;
};

// Reads numbers that may sit at any alignment.
inline std::uint32_t readUInt32(const std::uint8_t* at) {
  std::uint32_t value;
  std::memcpy(&value, at, sizeof value);
  return value;
}
inline std::uint16_t readUInt16(const std::uint8_t* at) {
  std::uint16_t value;
  std::memcpy(&value, at, sizeof value);
  return value;
}
inline std::uint64_t readUInt64(const std::uint8_t* at) {
  std::uint64_t value;
  std::memcpy(&value, at, sizeof value);
  return value;
}

}  // namespace midi
