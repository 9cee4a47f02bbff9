#pragma once

// Plays a music sequence's note tracks through the audio graph the sequence is attached to.
//
// The main thread commands (start, stop, set time); the audio thread carries the commands out at
// the start of its next block and emits each note's note on and note off at its exact frame:
// a note at beat b (counted from where playing started) sounds at frame
// round(b x 60 / tempo x sample rate). Tracks loop as their loop info says; the tempo is read
// from the tempo track at the start of each block, so a tempo change applies from the next block.

#include <atomic>
#include <cstdint>
#include <vector>

#include "platform/foundation/AudioThread.h"
#include "platform/foundation/SnapshotPublisher.h"
#include "platform/music/MidiBlock.h"
#include "platform/music/MusicSequence.h"
#include "platform/music/MusicTrack.h"
#include "platform/music/TransportPosition.h"

namespace platform {

class MusicPlayer {
 public:
  MusicPlayer() = default;
  ~MusicPlayer();
  MusicPlayer(const MusicPlayer&) = delete;
  MusicPlayer& operator=(const MusicPlayer&) = delete;

  // Main thread. The tracks the sequence has now are the ones played.
  void setSequence(MusicSequence* sequence);
  MusicSequence* sequence() const { return sequence_; }

  // Main thread. Starts from the current time; false when the sequence is not attached to an
  // audio graph (nothing would sound).
  bool start();
  // Main thread. Stops; the time stays where playing stopped and sounding notes are released.
  void stop();
  void setTime(double beats);
  // The play position in beats; it keeps growing across loop repetitions.
  double getTime() const;
  bool isPlaying() const { return transport_.playing; }

  // Audio thread: emits this block's notes into `out`, at frames inside the block.
  PELMA_HOT void process(std::uint32_t frames, double sampleRate, MidiBlock& out) noexcept;
  // Audio thread: where the last processed block started, after the commands it carried out.
  const TransportPosition& blockPosition() const noexcept { return blockPosition_; }

 private:
  // What the main thread wants the audio thread to do. Each command publishes the whole state,
  // so commands given while no audio runs are never lost: the audio thread carries out the
  // latest state when it runs again.
  struct Transport {
    bool playing = false;
    double beats = 0.0;            // where to start, or where the last time change jumped to
    std::uint64_t serial = 0;      // grows with every command
    std::uint64_t jumpSerial = 0;  // the serial of the last time change
  };
  struct PendingNoteOff {
    double beat;
    std::uint64_t earliestFrame;  // never before the frame after its note on
    std::uint8_t status, note;
  };
  static constexpr std::size_t kMaxPendingNoteOffs = 512;

  void publishTransport();
  // Audio thread helpers.
  void apply(const Transport& transport, MidiBlock& out) noexcept;
  void releaseAll(MidiBlock& out) noexcept;
  PELMA_HOT double beatAtFrame(double frame) const noexcept;
  double frameOfBeat(double beat) const noexcept;
  PELMA_HOT double tempoAt(double beat) const noexcept;
  PELMA_HOT void emitNotes(const TrackSnapshot& track, double fromBeat, double toBeat,
                           std::uint32_t frames, MidiBlock& out) noexcept;
  PELMA_HOT void emitNotesInWindow(const TrackSnapshot& track, double low, double high,
                                   double offset, std::uint32_t frames, MidiBlock& out) noexcept;
  // Where the note off of a note starting at `onFrame` is kept; null when none can be freed.
  PendingNoteOff* pendingSlot(std::uint64_t onFrame, std::uint32_t frames, MidiBlock& out) noexcept;
  PELMA_HOT void emitNoteOffs(double toBeat, std::uint32_t frames, MidiBlock& out) noexcept;
  std::uint32_t frameInBlock(double absoluteFrame, std::uint32_t frames) const noexcept;

  // Main-thread state.
  MusicSequence* sequence_ = nullptr;
  Transport transport_;  // also where the last command left the play position

  // Readers of the tracks, created on the main thread before the player is attached.
  MusicTrack::Reader tempoReader_;
  std::vector<MusicTrack::Reader> trackReaders_;

  SnapshotPublisher<Transport> transportPublisher_{std::make_unique<Transport>()};
  SnapshotPublisher<Transport>::Reader transportReader_ = transportPublisher_.makeReader();
  std::atomic<std::uint64_t> acknowledged_{0};
  std::atomic<double> audioTime_{0.0};

  // Audio-thread state.
  bool running_ = false;
  std::uint64_t appliedSerial_ = 0;
  std::uint64_t frame_ = 0;   // frames played since the start
  double anchorFrame_ = 0.0;  // the tempo was `tempo_` from this frame...
  double anchorBeat_ = 0.0;   // ...which is this beat
  double tempo_ = kDefaultTempo;
  double sampleRate_ = 48000.0;
  double scannedBeat_ = 0.0;  // notes before this beat have been emitted
  const TrackSnapshot* tempoSnapshot_ = nullptr;
  TransportPosition blockPosition_;
  PendingNoteOff pending_[kMaxPendingNoteOffs] = {};
  std::size_t pendingCount_ = 0;
};

}  // namespace platform
