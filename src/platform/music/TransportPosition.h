#pragma once

// Where the music player stands at the start of an audio block, as instruments are told it.

#include <cstdint>

namespace platform {

struct TransportPosition {
  bool playing = false;
  double beat = 0.0;   // the play position, in beats from the sequence's start
  double tempo = 0.0;  // beats per minute; 0 when no player tells
};

}  // namespace platform
