#pragma once

#include <cstdint>

// Receives everything the keyboard screen plays: keys, wheels and panic. The host screen turns
// each call into a MIDI message for the instrument and hands keys on to the sequencer.
class KRPianoViewDelegate {
 public:
  virtual ~KRPianoViewDelegate() = default;
  // `key` is a MIDI note number, `velocity` is in 0..1.
  virtual void pianoKeyPressed(std::int32_t key, float velocity) = 0;
  virtual void pianoKeyReleased(std::int32_t key) = 0;
  // 0 is no modulation, 1 full.
  virtual void modWheelChanged(float value) = 0;
  // 0.5 is no bend, 0 full bend down, 1 full bend up.
  virtual void pitchWheelChanged(float value) = 0;
  // All notes off.
  virtual void panic() = 0;
};
