#pragma once

#include <cstdint>
#include <memory>
#include <vector>

// One key of a step's chord: a MIDI note number and a velocity as a fraction (a MIDI velocity v
// arrives as v / 128). Steps share key objects, so keys are held through shared pointers.
class KRStepSequenceKey {
 public:
  std::int32_t number() const { return number_; }
  void setNumber(std::int32_t number) { number_ = number; }
  float velocity() const { return velocity_; }
  void setVelocity(float velocity) { velocity_ = velocity; }

 private:
  std::int32_t number_ = 0;
  float velocity_ = 0.0f;
};

using KRStepSequenceKeyArray = std::vector<std::shared_ptr<KRStepSequenceKey>>;
