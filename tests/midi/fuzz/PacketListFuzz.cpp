// libFuzzer target: any bytes read as a packet list, with every channel setting. The reading
// must stay inside the bytes it is given (AddressSanitizer checks) and forward only status bytes.

#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "midi/MidiPacketParser.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < 1) return 0;
  const int channel = data[0] % 17;  // 0 (all) to 16
  midi::parsePacketList(
      data + 1, size - 1, [channel] { return channel; },
      [channel](std::uint8_t status, std::uint8_t c, std::uint8_t, std::uint8_t, std::uint64_t) {
        if (status < 0x80 || (status & 0x0F) != 0 || c > 15) std::abort();
        if (channel != 0 && channel != c + 1) std::abort();
      });
  return 0;
}
