#pragma once

// A key for a step of a step sequence, as the sequencer screen records it (velocity 100 of 128
// unless a test needs another), and a step's keys read back.

#include <cstdint>
#include <memory>
#include <utility>
#include <vector>

#include "sequencer/KRStepSequence.h"

namespace testing_support {

inline std::shared_ptr<KRStepSequenceKey> stepKey(std::int32_t number,
                                                  float velocity = 100.0f / 128) {
  auto key = std::make_shared<KRStepSequenceKey>();
  key->setNumber(number);
  key->setVelocity(velocity);
  return key;
}

// The keys of a step as (number, velocity), in the order they were recorded.
using Chord = std::vector<std::pair<int, float>>;
inline Chord chordAt(KRStepSequence& sequence, std::int32_t step) {
  Chord chord;
  for (const auto& key : sequence.stepAtIndex(step).keys())
    chord.emplace_back(key->number(), key->velocity());
  return chord;
}

}  // namespace testing_support
