#pragma once

// Playing an instrument live from MIDI input, without screens: every MIDI source and the virtual
// input "Pelma" play it through the audio output until the time is up or the process is asked to
// stop (SIGINT, SIGTERM), and then it stops cleanly: all notes off, the output closed.

#include <cstdint>
#include <string>

namespace app {

struct ListenOptions {
  std::string pluginName = "Pelma";
  std::int32_t channel = 0;  // 0: all channels; 1..16: that one only
  double seconds = 0.0;      // 0: until asked to stop
};

int listenLive(const ListenOptions& options);

}  // namespace app
