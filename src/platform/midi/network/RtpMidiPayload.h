#pragma once

// The RTP-MIDI payload (the MIDI that network MIDI peers send on the data port): the RTP header,
// the MIDI command section (a list of commands with delta times, running status, system messages
// and SysEx whole or in segments) and the recovery journal, read well enough to recover the note
// offs a lost packet carried. Everything is read inside the datagram's bounds; a datagram that is
// malformed anywhere delivers nothing. No allocation: a stream keeps its state (a SysEx being
// assembled across packets, the notes sounding) in fixed storage.

#include <array>
#include <bitset>
#include <cstddef>
#include <cstdint>

namespace rtp_midi {

inline constexpr std::uint8_t kPayloadType = 0x61;
inline constexpr std::size_t kMaximumSysExSize = 4096;

struct RtpHeader {
  std::uint16_t sequenceNumber = 0;
  std::uint32_t timestamp = 0;
  std::uint32_t ssrc = 0;
};

enum class PayloadResult { ok, notRtpMidi, malformed };

// Receives one MIDI message with its time (the RTP time stamp plus the deltas before it). A
// reference to a callable the caller keeps alive: nothing is copied or allocated.
class MessageHandler {
 public:
  template <typename Callable>
  MessageHandler(Callable& callable)  // NOLINT: implicit, like a function reference
      : object_(&callable),
        call_([](void* object, std::uint32_t timestamp, const std::uint8_t* bytes,
                 std::size_t length) {
          (*static_cast<Callable*>(object))(timestamp, bytes, length);
        }) {}
  void operator()(std::uint32_t timestamp, const std::uint8_t* bytes, std::size_t length) const {
    call_(object_, timestamp, bytes, length);
  }

 private:
  void* object_;
  void (*call_)(void*, std::uint32_t, const std::uint8_t*, std::size_t);
};

// The receiving side of one peer's stream.
class PayloadReader {
 public:
  // Reads one datagram; on ok, `handler` has been called for every complete message in order
  // (notes recovered from the journal after a gap first, as note offs at the packet's time).
  PayloadResult read(const std::uint8_t* data, std::size_t size, const MessageHandler& handler);

  // The header of the last datagram read ok.
  const RtpHeader& lastHeader() const { return header_; }
  // Packets missing between the ones read (by sequence number).
  std::uint64_t lostPackets() const { return lost_; }
  bool isSounding(int channel, int note) const { return sounding_[channel][note]; }

 private:
  // Walks the command list; calls `each` with every
  // command's delta sum and bytes (a running-status command with its status put back); false
  // when the list is malformed. `status` is the running status as it goes.
  template <typename Each>
  static bool walkCommands(const std::uint8_t* list, std::size_t size, bool firstHasDelta,
                           std::uint8_t& status, Each&& each);
  void deliver(std::uint32_t timestamp, const std::uint8_t* bytes, std::size_t length,
               const MessageHandler& handler);
  // Reads the journal's note chapters; with `handler`, sends a note off for each note the
  // journal says is off that still sounds here. False when the journal is malformed.
  bool recoverNoteOffs(const std::uint8_t* journal, std::size_t size, std::uint32_t timestamp,
                       const MessageHandler* handler);

  RtpHeader header_;
  bool started_ = false;
  std::uint64_t lost_ = 0;
  std::array<std::uint8_t, kMaximumSysExSize> sysEx_{};
  std::size_t sysExLength_ = 0;
  bool inSysEx_ = false;
  bool sysExOverflow_ = false;
  std::array<std::bitset<128>, 16> sounding_{};
};

// Writes an RTP-MIDI datagram with `commands` (whole MIDI messages one after another, each with
// its status byte, all at the packet's time, no journal); its length, or 0 when it does not fit
// or a message is cut short. For the sending side and for tests.
std::size_t writePayload(const RtpHeader& header, const std::uint8_t* commands,
                         std::size_t commandsLength, std::uint8_t* buffer, std::size_t capacity);

}  // namespace rtp_midi
