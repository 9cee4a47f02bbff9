#pragma once

// The step sequence: one bar of 16 steps, each a sixteenth note (0.25 beat), 4 beats in all.
// It computes each step's time (with swing) and note length (with gate and ties), edits steps by
// position and by range, and renders ranges of steps as note events on a music track.
//
// Positions are step indices 0 to 15; a larger one throws std::out_of_range (the sequence is left
// usable). Ranges use unsigned 64-bit arithmetic: a range whose end wraps around changes nothing.
// Main thread only.

#include <array>
#include <cstdint>

#include "platform/foundation/Range.h"
#include "platform/foundation/WeakRef.h"
#include "platform/music/MusicEventIterator.h"
#include "platform/music/MusicTrack.h"
#include "sequencer/KRStepSequenceDelegate.h"
#include "sequencer/KRStepSequenceStep.h"

class KRStepSequence {
 public:
  static constexpr int kStepCount = 16;
  static constexpr float kStepBeats = 0.25f;

  // Looks a step up; throws std::out_of_range outside 0 to 15.
  KRStepSequenceStep& stepAtIndex(std::int32_t index);

  // Start of step `position` in beats; odd steps are delayed by swing / 8 beat. 16 is the bar's
  // end.
  float stepPosition(std::uint64_t position) const;
  // Length of the note of step `position` in beats: the gate fraction of a step, plus one step for
  // every tied step of the run that starts there (runs stop at step 15).
  float stepLength(std::uint64_t position) const;

  // Single-position edits: they never touch the music track.
  void clearStepAtPosition(std::uint64_t position);
  void setKeysAtPosition(const KRStepSequenceKeyArray& keys, std::uint64_t position);
  void setTieAtPosition(bool tie, std::uint64_t position);

  // Range edits: each edits the steps, re-renders the range and notifies the delegate once.
  void clearStepsInRange(platform::Range range);
  void setKeysToRange(const KRStepSequenceKeyArray& keys, platform::Range range);
  void setTieAtRange(bool tie, platform::Range range);
  void invertTieAtRange(platform::Range range);

  // Clears the time span of the range on the music track and writes the steps' notes there.
  void updateMusicTrackInRange(platform::Range range);

  float swing() const { return swing_; }
  // Stores the swing (unclamped) and re-renders steps 0 to 14. Step 15 is deliberately left as
  // it stands on the track.
  void setSwing(float swing);
  float gate() const { return gate_; }
  // Stores the gate, kept off exactly 0 and 1, and rewrites the length of every note on the track.
  void setGate(float gate);

  void notifyDelegate(platform::Range range);
  void setMusicTrack(platform::MusicTrack* track) { musicTrack_ = track; }
  void setMusicEventIterator(platform::MusicEventIterator* iterator) { iterator_ = iterator; }
  // Kept for callers that expect it; step times are computed when needed.
  void updateTimes() {}

  KRStepSequenceDelegate* delegate() const { return delegate_.get(); }
  void setDelegate(KRStepSequenceDelegate* delegate) { delegate_ = delegate; }

 private:
  const KRStepSequenceStep& step(std::uint64_t position) const;
  // Runs `edit` on every position of the range (when it does not wrap), re-renders the range and
  // sends one notification for it.
  template <typename Edit>
  void editRange(platform::Range range, Edit edit);

  std::array<KRStepSequenceStep, kStepCount> steps_;
  float swing_ = 0.0f;
  float gate_ = 0.5f;
  bool notifications_ = true;
  platform::MusicEventIterator* iterator_ = nullptr;
  platform::MusicTrack* musicTrack_ = nullptr;
  platform::WeakRef<KRStepSequenceDelegate> delegate_;
};
