#include "platform/midi/network/AppleMidiSession.h"

#include <algorithm>
#include <cstdio>

#include "platform/midi/network/BigEndian.h"

namespace rtp_midi {

AppleMidiSession::AppleMidiSession(std::uint32_t ssrc, std::string_view name,
                                   SessionListener& listener, SessionTime peerTimeout)
    : ssrc_(ssrc),
      peerTimeout_(peerTimeout),
      clockSyncInterval_(std::min(kClockSyncInterval, peerTimeout / 6)),
      listener_(listener),
      nextToken_(ssrc * 2654435761u + 1) {
  name = name.substr(0, kMaximumNameLength);
  std::copy(name.begin(), name.end(), name_.begin());
  std::snprintf(silentReason_.data(), silentReason_.size(), "silent for %llu s",
                static_cast<unsigned long long>(peerTimeout / kSecond));
}

AppleMidiSession::Slot* AppleMidiSession::findBySsrc(std::uint32_t ssrc) {
  for (Slot& slot : slots_)
    if (slot.state != State::free && slot.peer.ssrc == ssrc) return &slot;
  return nullptr;
}

AppleMidiSession::Slot* AppleMidiSession::findByToken(std::uint32_t token) {
  for (Slot& slot : slots_)
    if (slot.state != State::free && slot.initiator && slot.token == token) return &slot;
  return nullptr;
}

bool AppleMidiSession::isFrom(const Slot& slot, const Endpoint& from) {
  return from == slot.peer.control || from == slot.peer.data;
}

AppleMidiSession::Slot* AppleMidiSession::freeSlot() {
  for (Slot& slot : slots_)
    if (slot.state == State::free) return &slot;
  return nullptr;
}

std::size_t AppleMidiSession::joinedPeers() const {
  return static_cast<std::size_t>(std::count_if(
      slots_.begin(), slots_.end(), [](const Slot& slot) { return slot.state == State::joined; }));
}

void AppleMidiSession::sendCommand(SessionPort port, const Endpoint& to,
                                   const SessionCommand& command) {
  std::uint8_t buffer[128];
  if (const std::size_t size = writeSessionCommand(command, buffer, sizeof buffer))
    listener_.send(port, to, buffer, size);
}

void AppleMidiSession::receive(SessionPort port, const Endpoint& from, const std::uint8_t* data,
                               std::size_t size, SessionTime now) {
  if (looksLikeSessionCommand(data, size)) {
    const auto command = readSessionCommand(data, size);
    if (!command) {
      ++dropped_;
      return;
    }
    switch (command->type) {
      case CommandType::invitation:
        answerInvitation(port, from, *command, now);
        return;
      case CommandType::invitationAccepted: {
        Slot* slot = findByToken(command->token);
        if (!slot) break;
        slot->lastHeard = now;
        if (port == SessionPort::control && slot->state == State::invitingControl) {
          slot->peer.ssrc = command->ssrc;
          slot->peer.name = command->name;
          slot->peer.control = from;
          slot->peer.data = {from.address, static_cast<std::uint16_t>(from.port + 1)};
          slot->state = State::invitingData;
          slot->attempts = 1;
          slot->nextAction = now + kInvitationRetry;
          sendCommand(
              SessionPort::data, slot->peer.data,
              makeSessionCommand(CommandType::invitation, slot->token, ssrc_, name_.data()));
        } else if (port == SessionPort::data && slot->state == State::invitingData) {
          slot->peer.data = from;
          slot->state = State::joined;
          listener_.peerJoined(slot->peer);
          startClockSync(*slot, now);
        }
        return;
      }
      case CommandType::invitationRejected:
        if (Slot* slot = findByToken(command->token); slot && slot->state != State::joined) {
          *slot = Slot{};
          return;
        }
        break;
      case CommandType::endSession:
        if (Slot* slot = findBySsrc(command->ssrc); slot && isFrom(*slot, from)) {
          drop(*slot, "goodbye", false);
          return;
        }
        break;
      case CommandType::clockSync:
        handleClockSync(from, *command, now);
        return;
      case CommandType::receiverFeedback:
        if (Slot* slot = findBySsrc(command->ssrc); slot && isFrom(*slot, from)) {
          slot->lastHeard = now;
          return;
        }
        break;
    }
    ++dropped_;
    return;
  }
  // MIDI: only on the data port, from a peer that has joined.
  Slot* slot = port == SessionPort::data && size >= 12 ? findBySsrc(read32(data + 8)) : nullptr;
  if (!slot || slot->state != State::joined || from != slot->peer.data) {
    ++dropped_;
    return;
  }
  slot->lastHeard = now;
  auto deliver = [this, slot](std::uint32_t timestamp, const std::uint8_t* bytes,
                              std::size_t length) {
    listener_.midiReceived(slot->peer, timestamp, bytes, length);
  };
  if (slot->reader.read(data, size, deliver) == PayloadResult::ok)
    slot->unacknowledgedMidi = true;
  else
    ++dropped_;
}

void AppleMidiSession::answerInvitation(SessionPort port, const Endpoint& from,
                                        const SessionCommand& command, SessionTime now) {
  const auto answer = [&](CommandType type) {
    sendCommand(port, from, makeSessionCommand(type, command.token, ssrc_, name_.data()));
  };
  Slot* slot = findBySsrc(command.ssrc);
  if (slot && from.address != slot->peer.control.address) {
    answer(CommandType::invitationRejected);  // its SSRC is taken by a peer elsewhere
    return;
  }
  if (port == SessionPort::control) {
    if (slot) drop(*slot, "restarted", false);  // a peer inviting again has started over
    slot = freeSlot();
    if (!slot) {
      answer(CommandType::invitationRejected);
      return;
    }
    *slot = Slot{};
    slot->state = State::awaitingData;
    slot->peer.ssrc = command.ssrc;
    slot->peer.name = command.name;
    slot->peer.control = from;
    slot->token = command.token;
    slot->lastHeard = now;
    answer(CommandType::invitationAccepted);
    return;
  }
  if (!slot || slot->state != State::awaitingData) {
    answer(CommandType::invitationRejected);
    return;
  }
  slot->peer.data = from;
  slot->state = State::joined;
  slot->lastHeard = now;
  answer(CommandType::invitationAccepted);
  listener_.peerJoined(slot->peer);
  slot->nextAction = now + 2 * kSecond;  // our own clock exchanges, after the peer's first
}

void AppleMidiSession::handleClockSync(const Endpoint& from, const SessionCommand& command,
                                       SessionTime now) {
  Slot* slot = findBySsrc(command.ssrc);
  if (!slot || slot->state != State::joined || from != slot->peer.data) {
    ++dropped_;
    return;
  }
  slot->lastHeard = now;
  if (command.count == 2) return;  // an exchange the peer started is complete: nothing to answer
  SessionCommand reply = command;
  reply.ssrc = ssrc_;
  reply.count = static_cast<std::uint8_t>(command.count + 1);
  reply.timestamps[reply.count] = now;
  sendCommand(SessionPort::data, from, reply);
}

void AppleMidiSession::startClockSync(Slot& slot, SessionTime now) {
  SessionCommand clock;
  clock.type = CommandType::clockSync;
  clock.ssrc = ssrc_;
  clock.count = 0;
  clock.timestamps = {now, 0, 0};
  sendCommand(SessionPort::data, slot.peer.data, clock);
  slot.nextAction = now + clockSyncInterval_;
}

void AppleMidiSession::sendFeedback(Slot& slot, SessionTime now) {
  SessionCommand feedback;
  feedback.type = CommandType::receiverFeedback;
  feedback.ssrc = ssrc_;
  feedback.sequenceNumber = slot.reader.lastHeader().sequenceNumber;
  sendCommand(SessionPort::control, slot.peer.control, feedback);
  slot.unacknowledgedMidi = false;
  slot.nextFeedback = now + kFeedbackInterval;
}

void AppleMidiSession::drop(Slot& slot, std::string_view why, bool sayGoodbye) {
  if (sayGoodbye && slot.state != State::free) {
    sendCommand(SessionPort::control, slot.peer.control,
                makeSessionCommand(CommandType::endSession, slot.token, ssrc_, name_.data()));
  }
  if (slot.state == State::joined) listener_.peerLeft(slot.peer, why);
  slot = Slot{};
}

void AppleMidiSession::tick(SessionTime now) {
  for (Slot& slot : slots_) {
    switch (slot.state) {
      case State::free:
        break;
      case State::invitingControl:
      case State::invitingData:
        if (now < slot.nextAction) break;
        if (slot.attempts >= kInvitationAttempts) {
          slot = Slot{};  // nobody answered
          break;
        }
        ++slot.attempts;
        slot.nextAction = now + kInvitationRetry;
        sendCommand(slot.state == State::invitingControl ? SessionPort::control : SessionPort::data,
                    slot.state == State::invitingControl ? slot.peer.control : slot.peer.data,
                    makeSessionCommand(CommandType::invitation, slot.token, ssrc_, name_.data()));
        break;
      case State::awaitingData:  // an invitation never completed on the data port
        if (now - slot.lastHeard > kInvitationTimeout) slot = Slot{};
        break;
      case State::joined:
        if (now - slot.lastHeard > peerTimeout_) {
          drop(slot, silentReason_.data(), true);
          break;
        }
        if (now >= slot.nextAction) startClockSync(slot, now);
        if (slot.unacknowledgedMidi && now >= slot.nextFeedback) sendFeedback(slot, now);
        break;
    }
  }
}

void AppleMidiSession::invite(const Endpoint& control, SessionTime now) {
  Slot* slot = freeSlot();
  if (!slot) return;
  *slot = Slot{};
  slot->state = State::invitingControl;
  slot->initiator = true;
  slot->token = nextToken_++;
  slot->peer.control = control;
  slot->attempts = 1;
  slot->nextAction = now + kInvitationRetry;
  sendCommand(SessionPort::control, control,
              makeSessionCommand(CommandType::invitation, slot->token, ssrc_, name_.data()));
}

void AppleMidiSession::endAll() {
  for (Slot& slot : slots_)
    if (slot.state != State::free) drop(slot, "session ended", true);
}

}  // namespace rtp_midi
