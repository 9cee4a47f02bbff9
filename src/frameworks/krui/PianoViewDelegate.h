#pragma once

#include <cstdint>

#include "platform/foundation/WeakRef.h"

// Receives the keys a PianoView plays. Every release follows a press of the same key, and a key
// is never reported pressed twice without a release in between. Held weakly by the view.
class PianoViewDelegate : public platform::WeaklyReferenceable {
 public:
  // `key` is a MIDI note number, `velocity` is in 0..1.
  virtual void pianoKeyPressed(std::int32_t key, float velocity) = 0;
  virtual void pianoKeyReleased(std::int32_t key) = 0;

 protected:
  ~PianoViewDelegate() = default;
};
