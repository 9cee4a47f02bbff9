#pragma once

// The frame within the current period at which the MIDI message now being handed on arrived, on
// the thread that hands it on (JACK's process thread, while it reads the period's MIDI); 0 on
// every other thread. A message sent to an instrument from inside that hand-over plays at that
// frame of the block the same period renders, so MIDI from JACK keeps its timing.

#include <cstdint>

namespace platform {

inline thread_local std::uint32_t midiArrivalFrame = 0;

}  // namespace platform
