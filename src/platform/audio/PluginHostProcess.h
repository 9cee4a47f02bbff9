#pragma once

#include <atomic>
#include <cstdint>

namespace platform {

class AudioUnit;

// The plug-in host process: answers the blocks handed over in `shared` until `running` ends.
void runPluginHostBlocks(AudioUnit& unit, std::uint8_t* shared,
                         const std::atomic<bool>& running) noexcept;

}  // namespace platform
