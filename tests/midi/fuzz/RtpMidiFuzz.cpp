// libFuzzer target: any bytes read as network MIDI datagrams, as session commands and as a stream
// of RTP-MIDI payloads (the input split at "|" into packets, so that state carried from packet to
// packet is fuzzed too). Reading must stay inside each datagram (AddressSanitizer checks), and
// what is delivered must be whole MIDI: a status byte first, data bytes after it, SysEx framed.

#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "midi/network/AppleMidiCommand.h"
#include "midi/network/RtpMidiPayload.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (auto command = rtp_midi::readSessionCommand(data, size)) {
    std::uint8_t buffer[128];
    if (command->nameView().size() > rtp_midi::kMaximumNameLength) std::abort();
    if (rtp_midi::writeSessionCommand(*command, buffer, sizeof buffer) == 0) std::abort();
  }
  rtp_midi::PayloadReader reader;
  auto check = [](std::uint32_t, const std::uint8_t* bytes, std::size_t length) {
    if (length == 0 || bytes[0] < 0x80) std::abort();
    if (bytes[0] == 0xF0) {
      if (bytes[length - 1] != 0xF7) std::abort();
      return;
    }
    for (std::size_t i = 1; i < length; ++i)
      if (bytes[i] >= 0x80) std::abort();
  };
  std::size_t start = 0;
  for (std::size_t i = 0; i <= size; ++i) {
    if (i == size || data[i] == '|') {
      reader.read(data + start, i - start, check);
      start = i + 1;
    }
  }
  return 0;
}
