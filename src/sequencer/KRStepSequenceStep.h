#pragma once

#include "sequencer/KRStepSequenceKey.h"

// One step of the sequence: its chord, in recording order (empty is a rest), and whether its note
// is held over into the following step.
class KRStepSequenceStep {
 public:
  bool tie() const { return tie_; }
  void setTie(bool tie) { tie_ = tie; }
  const KRStepSequenceKeyArray& keys() const { return keys_; }
  KRStepSequenceKeyArray& keys() { return keys_; }
  void setKeys(KRStepSequenceKeyArray keys) { keys_ = std::move(keys); }

  // Removes every key and drops the tie.
  void clear() {
    keys_.clear();
    tie_ = false;
  }

 private:
  bool tie_ = false;
  KRStepSequenceKeyArray keys_;
};
