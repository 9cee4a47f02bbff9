#pragma once

// One released key: its MIDI note number, its velocity (0..1) and the moment the record was made.
// The sequencer groups released keys into chords by comparing timeSinceNow with its threshold.
// Times come from a monotonic clock (see MonotonicClock), never from the wall clock.

#include <atomic>
#include <cstdint>

#include "platform/foundation/MonotonicClock.h"

class KeyEvent {
 public:
  // Stores the key with velocity 1.0 and the time now. `clock` must outlive the record.
  explicit KeyEvent(std::int32_t key,
                    const platform::MonotonicClock& clock = platform::MonotonicClock::system());
  KeyEvent(const KeyEvent&) = delete;
  KeyEvent& operator=(const KeyEvent&) = delete;

  std::int32_t key() const { return key_; }
  void setKey(std::int32_t key) { key_ = key; }
  float velocity() const { return velocity_; }
  void setVelocity(float velocity) { velocity_ = velocity; }
  // Read and written whole from any thread.
  platform::MonotonicTime eventTime() const { return eventTime_.load(); }
  void setEventTime(platform::MonotonicTime time) { eventTime_.store(time); }

  // Seconds from now to eventTime: a record made 0.2 s ago gives -0.2.
  double timeSinceNow() const;

 private:
  std::int32_t key_;
  float velocity_ = 1.0f;
  std::atomic<platform::MonotonicTime> eventTime_;
  const platform::MonotonicClock& clock_;
};
