#pragma once

// Timed events of a music track. Times and durations are in beats.

#include <cstdint>
#include <variant>

namespace platform {

// A note: note on at the event's time, note off `duration` beats later.
struct MIDINoteMessage {
  std::uint8_t channel = 0;
  std::uint8_t note = 0;
  std::uint8_t velocity = 0;
  std::uint8_t releaseVelocity = 0;
  float duration = 0.0f;

  friend bool operator==(const MIDINoteMessage&, const MIDINoteMessage&) = default;
};

// A tempo change, in beats per minute, on a sequence's tempo track.
struct ExtendedTempoEvent {
  double bpm = 0.0;

  friend bool operator==(const ExtendedTempoEvent&, const ExtendedTempoEvent&) = default;
};

// Numeric event types, as reported by MusicEventIterator::getEventInfo.
enum class MusicEventType : std::uint32_t {
  null = 0,
  extendedTempo = 3,
  midiNoteMessage = 6,
};

struct MusicEvent {
  double time = 0.0;
  std::variant<MIDINoteMessage, ExtendedTempoEvent> data;

  MusicEventType type() const {
    return std::holds_alternative<MIDINoteMessage>(data) ? MusicEventType::midiNoteMessage
                                                         : MusicEventType::extendedTempo;
  }
  const MIDINoteMessage* note() const { return std::get_if<MIDINoteMessage>(&data); }
  const ExtendedTempoEvent* tempo() const { return std::get_if<ExtendedTempoEvent>(&data); }
};

}  // namespace platform
