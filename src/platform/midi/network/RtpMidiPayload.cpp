#include "platform/midi/network/RtpMidiPayload.h"

#include <algorithm>
#include <cstring>

#include "platform/midi/network/BigEndian.h"

namespace rtp_midi {
namespace {

// Data bytes after a status byte; -1 for SysEx, which runs to its end byte.
int dataBytes(std::uint8_t status) {
  if (status < 0xF0) return (status & 0xE0) == 0xC0 ? 1 : 2;
  switch (status) {
    case 0xF0:
    case 0xF7:
      return -1;
    case 0xF1:
    case 0xF3:
      return 1;
    case 0xF2:
      return 2;
    default:
      return 0;  // tune request, real-time, undefined
  }
}

bool allData(const std::uint8_t* bytes, std::size_t count) {
  return std::all_of(bytes, bytes + count, [](std::uint8_t b) { return b < 0x80; });
}

}  // namespace

template <typename Each>
bool PayloadReader::walkCommands(const std::uint8_t* list, std::size_t size, bool firstHasDelta,
                                 std::uint8_t& status, Each&& each) {
  std::size_t at = 0;
  std::uint32_t delta = 0;
  bool first = true;
  while (at < size) {
    if (!first || firstHasDelta) {
      std::uint32_t value = 0;
      for (int octet = 0;; ++octet) {
        if (at >= size || octet == 4) return false;
        const std::uint8_t b = list[at++];
        value = value << 7 | (b & 0x7F);
        if (!(b & 0x80)) break;
      }
      delta += value;
    }
    first = false;
    if (at >= size) return false;
    const std::uint8_t lead = list[at];
    if (lead < 0x80) {  // running status
      if (status == 0 || status >= 0xF0) return false;
      const auto count = static_cast<std::size_t>(dataBytes(status));
      if (size - at < count || !allData(list + at, count)) return false;
      std::uint8_t message[3] = {status, 0, 0};
      std::memcpy(message + 1, list + at, count);
      each(delta, message, count + 1);
      at += count;
      continue;
    }
    const int count = dataBytes(lead);
    if (count < 0) {  // a SysEx segment: data up to F7 (end), F0 (more follows) or F4 (cancel)
      std::size_t end = at + 1;
      while (end < size && list[end] < 0x80)
        ++end;
      if (end >= size) return false;
      const std::uint8_t last = list[end];
      if (last != 0xF7 && last != 0xF0 && !(last == 0xF4 && lead == 0xF7)) return false;
      each(delta, list + at, end - at + 1);
      at = end + 1;
      status = 0;
      continue;
    }
    const auto length = static_cast<std::size_t>(count) + 1;
    if (size - at < length || !allData(list + at + 1, length - 1)) return false;
    each(delta, list + at, length);
    at += length;
    if (lead < 0xF0)
      status = lead;
    else if (lead < 0xF8)
      status = 0;  // system common ends running status; real-time does not
  }
  return true;
}

void PayloadReader::deliver(std::uint32_t timestamp, const std::uint8_t* bytes, std::size_t length,
                            const MessageHandler& handler) {
  const std::uint8_t lead = bytes[0];
  if (lead == 0xF0 || lead == 0xF7) {
    const std::uint8_t last = bytes[length - 1];
    if (lead == 0xF0) {  // a SysEx begins (and may end here)
      sysExLength_ = 0;
      sysExOverflow_ = false;
      inSysEx_ = true;
    } else if (!inSysEx_) {
      return;  // the continuation of a SysEx whose start was lost
    }
    if (last == 0xF4) {  // cancelled
      inSysEx_ = false;
      return;
    }
    // Data of this segment, without its end byte (and without a continuing segment's F7).
    const std::size_t from = lead == 0xF7 ? 1 : 0;
    const std::size_t count = length - 1 - from;
    if (sysExLength_ + count + 1 > sysEx_.size()) sysExOverflow_ = true;
    if (!sysExOverflow_) {
      std::memcpy(sysEx_.data() + sysExLength_, bytes + from, count);
      sysExLength_ += count;
    }
    if (last == 0xF7) {
      inSysEx_ = false;
      if (sysExOverflow_) return;  // too long to pass on whole
      sysEx_[sysExLength_++] = 0xF7;
      handler(timestamp, sysEx_.data(), sysExLength_);
    }
    return;
  }
  const std::uint8_t kind = lead & 0xF0;
  const std::uint8_t channel = lead & 0x0F;
  if (kind == 0x90 && length == 3 && bytes[2] > 0) sounding_[channel].set(bytes[1]);
  if ((kind == 0x80 || (kind == 0x90 && bytes[2] == 0)) && length == 3)
    sounding_[channel].reset(bytes[1]);
  if (kind == 0xB0 && length == 3 && bytes[1] == 123) sounding_[channel].reset();
  handler(timestamp, bytes, length);
}

bool PayloadReader::recoverNoteOffs(const std::uint8_t* journal, std::size_t size,
                                    std::uint32_t timestamp, const MessageHandler* handler) {
  if (size < 3) return false;
  const std::uint8_t flags = journal[0];
  std::size_t at = 3;
  if (flags & 0x40) {  // system journal: skipped whole
    if (size - at < 2) return false;
    const std::size_t length = (journal[at] & 0x03) << 8 | journal[at + 1];
    if (length < 2 || size - at < length) return false;
    at += length;
  }
  if (!(flags & 0x20)) return true;  // no channel journals
  const int channels = (flags & 0x0F) + 1;
  for (int c = 0; c < channels; ++c) {
    if (size - at < 3) return false;
    const std::uint8_t channel = (journal[at] >> 3) & 0x0F;
    const std::size_t length = (journal[at] & 0x03) << 8 | journal[at + 1];
    const std::uint8_t chapters = journal[at + 2];
    if (length < 3 || size - at < length) return false;
    const std::uint8_t* chapter = journal + at + 3;
    const std::uint8_t* end = journal + at + length;
    at += length;
    auto left = [&] { return static_cast<std::size_t>(end - chapter); };
    if (chapters & 0x80) {  // P: program change
      if (left() < 3) return false;
      chapter += 3;
    }
    if (chapters & 0x40) {  // C: controllers
      if (left() < 1) return false;
      const std::size_t entries = (chapter[0] & 0x7F) + 1u;
      if (left() < 1 + 2 * entries) return false;
      chapter += 1 + 2 * entries;
    }
    if (chapters & 0x20) {  // M: parameter system, its length in its header
      if (left() < 2) return false;
      const std::size_t chapterLength = (chapter[0] & 0x03) << 8 | chapter[1];
      if (chapterLength < 2 || left() < chapterLength) return false;
      chapter += chapterLength;
    }
    if (chapters & 0x10) {  // W: pitch wheel
      if (left() < 2) return false;
      chapter += 2;
    }
    if (!(chapters & 0x08)) continue;  // N: notes
    if (left() < 2) return false;
    std::size_t logs = chapter[0] & 0x7F;
    const int low = chapter[1] >> 4, high = chapter[1] & 0x0F;
    if (logs == 127 && low == 15 && high == 0) logs = 128;
    const std::size_t offBytes = low <= high ? static_cast<std::size_t>(high - low + 1) : 0;
    if (left() < 2 + 2 * logs + offBytes) return false;
    const std::uint8_t* offBits = chapter + 2 + 2 * logs;
    for (std::size_t byte = 0; byte < offBytes; ++byte) {
      for (int bit = 0; bit < 8; ++bit) {
        if (!(offBits[byte] & (0x80 >> bit))) continue;
        const auto note = static_cast<std::uint8_t>((low + byte) * 8 + bit);
        if (!handler || note > 127 || !sounding_[channel][note]) continue;
        const std::uint8_t noteOff[3] = {static_cast<std::uint8_t>(0x80 | channel), note, 0};
        deliver(timestamp, noteOff, 3, *handler);
      }
    }
  }
  return true;
}

PayloadResult PayloadReader::read(const std::uint8_t* data, std::size_t size,
                                  const MessageHandler& handler) {
  if (size < 12 || (data[0] >> 6) != 2 || (data[1] & 0x7F) != kPayloadType)
    return PayloadResult::notRtpMidi;
  RtpHeader header{read16(data + 2), read32(data + 4), read32(data + 8)};
  std::size_t at = 12 + 4u * (data[0] & 0x0F);  // after the CSRC list
  if (data[0] & 0x20) {                         // padding at the end
    const std::uint8_t padding = data[size - 1];
    if (padding == 0 || padding > size) return PayloadResult::malformed;
    size -= padding;
  }
  if (data[0] & 0x10) {  // a header extension
    if (size < at + 4) return PayloadResult::malformed;
    at += 4 + 4u * read16(data + at + 2);
  }
  if (size < at + 1) return PayloadResult::malformed;
  const std::uint8_t section = data[at];
  std::size_t length = section & 0x0F;
  std::size_t headerSize = 1;
  if (section & 0x80) {
    if (size < at + 2) return PayloadResult::malformed;
    length = (section & 0x0F) << 8 | data[at + 1];
    headerSize = 2;
  }
  const std::uint8_t* list = data + at + headerSize;
  if (size - at - headerSize < length) return PayloadResult::malformed;
  const std::uint8_t* journal = list + length;
  const std::size_t journalSize = (section & 0x40) ? size - at - headerSize - length : 0;
  const bool firstHasDelta = section & 0x20;

  // Checked whole before anything is delivered. Running status never crosses packets: a list's
  // first channel command carries its status byte.
  std::uint8_t status = 0;
  if (!walkCommands(list, length, firstHasDelta, status,
                    [](std::uint32_t, const std::uint8_t*, std::size_t) {}))
    return PayloadResult::malformed;
  if ((section & 0x40) && !recoverNoteOffs(journal, journalSize, 0, nullptr))
    return PayloadResult::malformed;

  if (started_) {
    const auto gap = static_cast<std::uint16_t>(header.sequenceNumber - header_.sequenceNumber - 1);
    if (gap >= 0x8000) return PayloadResult::ok;  // late or repeated: already past
    if (gap > 0) {
      lost_ += gap;
      if (section & 0x40) recoverNoteOffs(journal, journalSize, header.timestamp, &handler);
    }
  }
  started_ = true;
  header_ = header;
  status = 0;
  walkCommands(list, length, firstHasDelta, status,
               [&](std::uint32_t delta, const std::uint8_t* bytes, std::size_t count) {
                 deliver(header.timestamp + delta, bytes, count, handler);
               });
  return PayloadResult::ok;
}

std::size_t writePayload(const RtpHeader& header, const std::uint8_t* commands,
                         std::size_t commandsLength, std::uint8_t* buffer, std::size_t capacity) {
  // The list: each message after the first behind a zero delta time.
  constexpr std::size_t kListStart = 14;  // after the header and a two-byte section header
  if (capacity < kListStart) return 0;
  std::size_t list = 0;
  for (std::size_t at = 0; at < commandsLength;) {
    std::size_t length = 1;
    const int count = dataBytes(commands[at]);
    if (commands[at] < 0x80) return 0;  // every message brings its status
    if (count < 0) {
      while (at + length < commandsLength && commands[at + length] != 0xF7)
        ++length;
      ++length;
    } else {
      length += static_cast<std::size_t>(count);
    }
    if (at + length > commandsLength) return 0;
    const std::size_t delta = at > 0 ? 1 : 0;
    if (kListStart + list + delta + length > capacity) return 0;
    if (delta) buffer[kListStart + list] = 0x00;
    std::memcpy(buffer + kListStart + list + delta, commands + at, length);
    list += delta + length;
    at += length;
  }
  if (list > 0x0FFF) return 0;
  const std::size_t sectionHeader = list > 15 ? 2 : 1;
  if (sectionHeader == 1) std::memmove(buffer + 13, buffer + kListStart, list);
  buffer[0] = 0x80;  // version 2
  buffer[1] = kPayloadType;
  write16(buffer + 2, header.sequenceNumber);
  write32(buffer + 4, header.timestamp);
  write32(buffer + 8, header.ssrc);
  if (sectionHeader == 2) {
    buffer[12] = static_cast<std::uint8_t>(0x80 | list >> 8);
    buffer[13] = static_cast<std::uint8_t>(list);
  } else {
    buffer[12] = static_cast<std::uint8_t>(list);
  }
  return 12 + sectionHeader + list;
}

}  // namespace rtp_midi
