#pragma once

// The session commands of network MIDI (the AppleMIDI session protocol that RTP-MIDI peers speak
// on a control port and the next port): invitation, accept, reject, goodbye, clock
// synchronisation and receiver feedback. Reading never goes past the datagram; writing fills a
// caller's buffer. Numbers are big-endian on the wire. No allocation.

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

namespace rtp_midi {

enum class CommandType : std::uint16_t {
  invitation = 0x494E,          // "IN"
  invitationAccepted = 0x4F4B,  // "OK"
  invitationRejected = 0x4E4F,  // "NO"
  endSession = 0x4259,          // "BY"
  clockSync = 0x434B,           // "CK"
  receiverFeedback = 0x5253,    // "RS"
};

inline constexpr std::uint32_t kProtocolVersion = 2;
inline constexpr std::size_t kMaximumNameLength = 64;

struct SessionCommand {
  CommandType type = CommandType::invitation;
  // Invitation, accept, reject, goodbye.
  std::uint32_t version = kProtocolVersion;
  std::uint32_t token = 0;
  std::uint32_t ssrc = 0;  // the sender's; also for clock sync and feedback
  std::array<char, kMaximumNameLength + 1> name{};  // NUL-terminated, cut at 64 bytes
  // Clock synchronisation: count 0, 1 or 2 and up to three time stamps (100 µs units).
  std::uint8_t count = 0;
  std::array<std::uint64_t, 3> timestamps{};
  // Receiver feedback: the highest RTP sequence number received.
  std::uint16_t sequenceNumber = 0;

  std::string_view nameView() const { return name.data(); }
};

// True when the datagram starts like a session command (0xFFFF and two letters).
bool looksLikeSessionCommand(const std::uint8_t* data, std::size_t size);

// The command in `data`, or nothing when it is malformed (too short for its type, an unknown
// type, a clock sync count above 2).
std::optional<SessionCommand> readSessionCommand(const std::uint8_t* data, std::size_t size);

// Writes `command` into `buffer`; its length, or 0 when the buffer is too small.
std::size_t writeSessionCommand(const SessionCommand& command, std::uint8_t* buffer,
                                std::size_t capacity);

// A command with a name, for invitations and their answers.
SessionCommand makeSessionCommand(CommandType type, std::uint32_t token, std::uint32_t ssrc,
                                  std::string_view name = {});

}  // namespace rtp_midi
