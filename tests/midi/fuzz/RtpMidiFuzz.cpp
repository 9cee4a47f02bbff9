// libFuzzer target: any bytes read as network MIDI datagrams: as session commands, as a stream
// of RTP-MIDI payloads and as datagrams to a session (the input split at "|" into packets, so that
// state carried from packet to packet is fuzzed too). Reading must stay inside each datagram
// (AddressSanitizer checks), and what is delivered must be whole MIDI: a status byte first, data
// bytes after it, SysEx framed.

#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "platform/midi/network/AppleMidiCommand.h"
#include "platform/midi/network/AppleMidiSession.h"
#include "platform/midi/network/RtpMidiPayload.h"

namespace {

// A session's listener that checks what comes out of it.
class Checker : public rtp_midi::SessionListener {
 public:
  void send(rtp_midi::SessionPort, const rtp_midi::Endpoint&, const std::uint8_t* data,
            std::size_t size) override {
    if (!rtp_midi::readSessionCommand(data, size)) std::abort();  // only well-formed commands
  }
  void peerJoined(const rtp_midi::Peer&) override {}
  void peerLeft(const rtp_midi::Peer&, std::string_view) override {}
  void midiReceived(const rtp_midi::Peer&, std::uint32_t, const std::uint8_t* bytes,
                    std::size_t length) override {
    if (length == 0 || bytes[0] < 0x80) std::abort();
  }
};

}  // namespace

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
  // The same packets into a session, each to the port its first byte's low bit names.
  // One session for all inputs (it is large); ending it frees every peer, so each input starts
  // from an empty session.
  static Checker checker;
  static rtp_midi::AppleMidiSession session(1, "Fuzz", checker);
  session.endAll();
  std::size_t start = 0;
  rtp_midi::SessionTime now = 0;
  for (std::size_t i = 0; i <= size; ++i) {
    if (i == size || data[i] == '|') {
      reader.read(data + start, i - start, check);
      const auto port = start < i && (data[start] & 1) ? rtp_midi::SessionPort::data
                                                       : rtp_midi::SessionPort::control;
      session.receive(port, {1, 5004}, data + start, i - start, now);
      now += rtp_midi::kSecond;
      session.tick(now);
      start = i + 1;
    }
  }
  return 0;
}
