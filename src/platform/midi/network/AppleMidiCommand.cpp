#include "platform/midi/network/AppleMidiCommand.h"

#include <algorithm>

#include "platform/midi/network/BigEndian.h"

namespace rtp_midi {
namespace {

bool hasName(CommandType type) {
  return type == CommandType::invitation || type == CommandType::invitationAccepted ||
         type == CommandType::invitationRejected || type == CommandType::endSession;
}

constexpr std::size_t kHeader = 4;          // 0xFFFF and the command
constexpr std::size_t kNamedFixed = 12;     // version, token, SSRC
constexpr std::size_t kClockSyncSize = 32;  // SSRC, count, padding, three time stamps
constexpr std::size_t kFeedbackSize = 8;    // SSRC, sequence number, padding

}  // namespace

bool looksLikeSessionCommand(const std::uint8_t* data, std::size_t size) {
  return size >= kHeader && data[0] == 0xFF && data[1] == 0xFF;
}

std::optional<SessionCommand> readSessionCommand(const std::uint8_t* data, std::size_t size) {
  if (!looksLikeSessionCommand(data, size)) return std::nullopt;
  SessionCommand command;
  command.type = static_cast<CommandType>(read16(data + 2));
  const std::uint8_t* body = data + kHeader;
  const std::size_t bodySize = size - kHeader;
  if (hasName(command.type)) {
    if (bodySize < kNamedFixed) return std::nullopt;
    command.version = read32(body);
    command.token = read32(body + 4);
    command.ssrc = read32(body + 8);
    // The name runs to its NUL or to the datagram's end, whichever comes first.
    const std::size_t available = std::min(bodySize - kNamedFixed, kMaximumNameLength);
    const std::uint8_t* name = body + kNamedFixed;
    std::size_t length = 0;
    while (length < available && name[length] != 0)
      ++length;
    std::copy(name, name + length, command.name.begin());
    command.name[length] = '\0';
    return command;
  }
  switch (command.type) {
    case CommandType::clockSync:
      if (bodySize < kClockSyncSize) return std::nullopt;
      command.ssrc = read32(body);
      command.count = body[4];
      if (command.count > 2) return std::nullopt;
      for (std::size_t i = 0; i < 3; ++i)
        command.timestamps[i] = read64(body + 8 + 8 * i);
      return command;
    case CommandType::receiverFeedback:
      if (bodySize < kFeedbackSize) return std::nullopt;
      command.ssrc = read32(body);
      command.sequenceNumber = read16(body + 4);
      return command;
    default:
      return std::nullopt;
  }
}

std::size_t writeSessionCommand(const SessionCommand& command, std::uint8_t* buffer,
                                std::size_t capacity) {
  std::size_t size = kHeader;
  if (hasName(command.type)) {
    const std::string_view name = command.nameView();
    size += kNamedFixed + (name.empty() ? 0 : name.size() + 1);
  } else if (command.type == CommandType::clockSync) {
    size += kClockSyncSize;
  } else if (command.type == CommandType::receiverFeedback) {
    size += kFeedbackSize;
  } else {
    return 0;
  }
  if (size > capacity) return 0;
  std::fill(buffer, buffer + size, std::uint8_t{0});
  buffer[0] = buffer[1] = 0xFF;
  write16(buffer + 2, static_cast<std::uint16_t>(command.type));
  std::uint8_t* body = buffer + kHeader;
  if (hasName(command.type)) {
    write32(body, command.version);
    write32(body + 4, command.token);
    write32(body + 8, command.ssrc);
    const std::string_view name = command.nameView();
    std::copy(name.begin(), name.end(), body + kNamedFixed);
  } else if (command.type == CommandType::clockSync) {
    write32(body, command.ssrc);
    body[4] = command.count;
    for (std::size_t i = 0; i < 3; ++i)
      write64(body + 8 + 8 * i, command.timestamps[i]);
  } else {
    write32(body, command.ssrc);
    write16(body + 4, command.sequenceNumber);
  }
  return size;
}

SessionCommand makeSessionCommand(CommandType type, std::uint32_t token, std::uint32_t ssrc,
                                  std::string_view name) {
  SessionCommand command;
  command.type = type;
  command.token = token;
  command.ssrc = ssrc;
  name = name.substr(0, kMaximumNameLength);
  std::copy(name.begin(), name.end(), command.name.begin());
  command.name[name.size()] = '\0';
  return command;
}

}  // namespace rtp_midi
