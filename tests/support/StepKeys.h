#pragma once

// A key for a step of a step sequence, as the sequencer screen records it; velocity 100 of 128
// unless a test needs another.

#include <cstdint>
#include <memory>

#include "sequencer/KRStepSequence.h"

namespace testing_support {

inline std::shared_ptr<KRStepSequenceKey> stepKey(std::int32_t number,
                                                  float velocity = 100.0f / 128) {
  auto key = std::make_shared<KRStepSequenceKey>();
  key->setNumber(number);
  key->setVelocity(velocity);
  return key;
}

}  // namespace testing_support
