#include "sequencer/KRStepSequence.h"

#include <cmath>
#include <stdexcept>
#include <string>

#include "platform/foundation/Numbers.h"

using platform::MIDINoteMessage;
using platform::MusicEventType;
using platform::Range;
using platform::truncateToInt32;

namespace {

constexpr std::uint64_t kLastStep = KRStepSequence::kStepCount - 1;

// A step index as the renderer passes it on: truncated to signed 32 bits, then widened back to
// the unsigned 64-bit position type (a negative value wraps around).
std::uint64_t asSigned32Index(std::uint64_t index) {
  return static_cast<std::uint64_t>(static_cast<std::int64_t>(static_cast<std::int32_t>(index)));
}

[[noreturn]] void throwOutOfRange(std::uint64_t position) {
  throw std::out_of_range("KRStepSequence: step position " + std::to_string(position) +
                          " is outside 0 to 15");
}

}  // namespace

KRStepSequenceStep& KRStepSequence::stepAtIndex(std::int32_t index) {
  if (index < 0 || index > static_cast<std::int32_t>(kLastStep)) {
    throwOutOfRange(static_cast<std::uint64_t>(static_cast<std::int64_t>(index)));
  }
  return steps_[static_cast<std::size_t>(index)];
}

const KRStepSequenceStep& KRStepSequence::step(std::uint64_t position) const {
  if (position > kLastStep) throwOutOfRange(position);
  return steps_[position];
}

float KRStepSequence::stepPosition(std::uint64_t position) const {
  const float base = static_cast<float>(static_cast<double>(position) / 4.0);
  if (position % 2 == 0) return base;
  // Odd steps: swing x 0.25 x 0.5 + base as one fused multiply-add in double, then to float.
  return static_cast<float>(
      std::fma(static_cast<double>(swing_) * 0.25, 0.5, static_cast<double>(base)));
}

float KRStepSequence::stepLength(std::uint64_t position) const {
  float length = gate_ * kStepBeats;
  if (!step(position).tie()) return length;
  for (std::uint64_t next = position;;) {
    length += kStepBeats;
    if (next >= kLastStep) break;  // ties never wrap around to step 0
    ++next;
    if (!step(next).tie()) break;
  }
  return length;
}

void KRStepSequence::clearStepAtPosition(std::uint64_t position) {
  if (position > kLastStep) throwOutOfRange(position);
  steps_[position].clear();
  if (notifications_) notifyDelegate({position, 1});
}

void KRStepSequence::setKeysAtPosition(const KRStepSequenceKeyArray& keys, std::uint64_t position) {
  clearStepAtPosition(position);  // also drops the tie
  KRStepSequenceKeyArray& stepKeys = steps_[position].keys();
  stepKeys.insert(stepKeys.end(), keys.begin(), keys.end());
  if (notifications_) notifyDelegate({position, 1});
}

void KRStepSequence::setTieAtPosition(bool tie, std::uint64_t position) {
  if (position > kLastStep) throwOutOfRange(position);
  steps_[position].setTie(tie);
  if (notifications_) notifyDelegate({position, 1});
}

template <typename Edit>
void KRStepSequence::editRange(Range range, Edit edit) {
  {
    // The single-position edits stay quiet; the range is announced once at the end. The flag is
    // restored even when a position past 15 throws.
    struct QuietScope {
      bool& notifications;
      ~QuietScope() { notifications = true; }
    } quiet{notifications_};
    notifications_ = false;
    const std::uint64_t end = range.location + range.length;
    if (range.location < end) {
      for (std::uint64_t position = range.location; position != end; ++position)
        edit(position);
    }
    updateMusicTrackInRange(range);
  }
  notifyDelegate(range);
}

void KRStepSequence::clearStepsInRange(Range range) {
  editRange(range, [this](std::uint64_t position) { clearStepAtPosition(position); });
}

void KRStepSequence::setKeysToRange(const KRStepSequenceKeyArray& keys, Range range) {
  editRange(range, [&](std::uint64_t position) { setKeysAtPosition(keys, position); });
}

void KRStepSequence::setTieAtRange(bool tie, Range range) {
  editRange(range, [&](std::uint64_t position) { setTieAtPosition(tie, position); });
}

void KRStepSequence::invertTieAtRange(Range range) {
  editRange(range, [this](std::uint64_t position) {
    const bool tied = stepAtIndex(static_cast<std::int32_t>(position)).tie();
    setTieAtPosition(!tied, position);
  });
}

void KRStepSequence::updateMusicTrackInRange(Range range) {
  const std::uint64_t end = range.location + range.length;
  const float startTime = stepPosition(asSigned32Index(range.location));
  const float endTime = stepPosition(asSigned32Index(end));
  if (musicTrack_) musicTrack_->clear(startTime, endTime);
  if (!(range.location < end)) return;

  for (std::uint64_t position = range.location; position != end; ++position) {
    const float time = stepPosition(position);
    const float length = stepLength(position);
    for (const auto& key : step(position).keys()) {
      // Velocity 1.0 becomes 128 on purpose: it is scaled by 128 and truncated, never clamped.
      const MIDINoteMessage message{
          .channel = 0,
          .note = static_cast<std::uint8_t>(key->number()),
          .velocity = static_cast<std::uint8_t>(truncateToInt32(key->velocity() * 128.0f)),
          .releaseVelocity = 0,
          .duration = length,
      };
      if (musicTrack_) musicTrack_->newMIDINoteEvent(time, message);
    }
  }
}

void KRStepSequence::setSwing(float swing) {
  swing_ = swing;
  // Steps 0 to 14 only: the note of step 15 keeps whatever time it was rendered at.
  updateMusicTrackInRange({0, 15});
}

void KRStepSequence::setGate(float gate) {
  if (gate == 0.0f) gate = 0.01f;
  if (gate == 1.0f) gate = 0.99f;
  gate_ = gate;
  if (!iterator_) return;

  // Each note keeps the whole steps it spans (its tie run) and gets the new gate fraction. This
  // relies on the gate never being exactly 0 or 1.
  iterator_->seek(0.0);
  if (!iterator_->hasCurrentEvent()) return;
  bool more = true;
  while (more) {
    if (auto info = iterator_->getEventInfo();
        info && info->type == MusicEventType::midiNoteMessage) {
      auto* note = static_cast<MIDINoteMessage*>(info->data);
      const std::int32_t wholeSteps = truncateToInt32(std::floor(note->duration * 4.0f));
      note->duration = (static_cast<float>(wholeSteps) + gate_) * 0.25f;
    }
    more = iterator_->hasNextEvent();
    iterator_->nextEvent();
  }
}

void KRStepSequence::notifyDelegate(Range range) {
  if (KRStepSequenceDelegate* delegate = delegate_.get()) delegate->sequenceUpdatedAtRange(range);
}
