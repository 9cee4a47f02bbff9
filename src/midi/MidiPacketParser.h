#pragma once

// Reads a packet list and forwards every status byte that passes the channel filter as one
// message: its status with the channel bits cleared, its channel, the two bytes that follow it
// and the packet's time stamp.
//
// The reading is deliberately simple and fixed: there is no running status (data bytes after a
// complete message are skipped), and every byte with its top bit set counts as a status byte,
// system bytes too (0xF0..0xFF are filtered by their low four bits and forwarded as 0xF0 with
// the two bytes that follow). The cursor then moves on by the length the high four bits give.
//
// It reads only inside [list, list + size): a byte past the end reads as 0, a packet that claims
// more data than the list holds ends at the list's end, and a count larger than the packets that
// fit stops at the end. Runs on a MIDI receive thread: no allocation, no locks.

#include <cstddef>
#include <cstdint>

#include "platform/midi/MIDIPacketList.h"

namespace midi {

// How far the cursor moves past byte `b` at `at` (the end of the packet is `end`).
inline const std::uint8_t* advancePast(const std::uint8_t* at, const std::uint8_t* end) {
  const std::uint8_t b = *at;
  const auto skipToNextStatus = [&] {
    const std::uint8_t* next = at + 1;
    while (next < end && *next < 0x80)
      ++next;
    return next;
  };
  switch (b >> 4) {
    case 0x8:
    case 0x9:
    case 0xA:
    case 0xB:
    case 0xE:
      return at + 3;
    case 0xC:
    case 0xD:
      return at + 2;
    case 0xF:
      switch (b) {
        case 0xF0:
          return skipToNextStatus();
        case 0xF1:
        case 0xF3:
          return at + 2;
        case 0xF2:
          return at + 3;
        default:
          return at + 1;
      }
    default:  // a data byte without a status before it
      return skipToNextStatus();
  }
}

// `channel()` gives the active channel: 0 for all, 1..16 for one. It is read twice for each
// status byte, as the filter's two tests are made on it. `forward(status, channel, data1, data2,
// timeStamp)` receives each message.
template <typename Channel, typename Forward>
void parsePacketList(const std::uint8_t* list, std::size_t size, Channel&& channel,
                     Forward&& forward) {
  if (size < kPacketCountSize) return;
  const std::uint8_t* const listEnd = list + size;
  const auto byteAt = [listEnd](const std::uint8_t* at) -> std::uint8_t {
    return at < listEnd ? *at : 0;
  };
  const auto count = static_cast<std::int32_t>(readUInt32(list));
  if (count < 1) return;

  std::size_t offset = kPacketCountSize;
  for (std::int32_t i = 0; i < count; ++i) {
    if (offset + kPacketHeaderSize > size) return;
    const std::uint8_t* packet = list + offset;
    const std::uint64_t timeStamp = readUInt64(packet);
    const std::uint16_t length = readUInt16(packet + 8);
    const std::uint8_t* cursor = packet + kPacketHeaderSize;
    const std::uint8_t* end =
        length <= static_cast<std::size_t>(listEnd - cursor) ? cursor + length : listEnd;
    offset = alignedTo4(static_cast<std::size_t>(end - list));

    while (cursor < end) {
      const std::uint8_t b = *cursor;
      if (b >= 0x80) {
        const std::uint8_t c = b & 0x0F;
        if (channel() == 0 || channel() == c + 1) {
          forward(static_cast<std::uint8_t>(b & 0xF0), c, byteAt(cursor + 1), byteAt(cursor + 2),
                  timeStamp);
        }
      }
      cursor = advancePast(cursor, end);
    }
  }
}

}  // namespace midi
