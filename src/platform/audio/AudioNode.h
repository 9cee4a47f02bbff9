#pragma once

namespace platform {

// A node of the audio graph: the output, the main mixer, or an instrument (AudioUnit).
class AudioNode {
 public:
  virtual ~AudioNode() = default;
};

}  // namespace platform
