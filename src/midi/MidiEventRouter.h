#pragma once

// The one way to the instrument: every key, wheel and panic event of the keyboard screen and every
// message of the MIDI sources becomes one three-byte channel message sent at once to the
// instrument, on channel 1 (see MidiMessages.h). Keys from the keyboard and note messages from
// MIDI are also handed to the sequencer screen, which records them in write mode.
//
// MIDI arrives on the MIDI system's receive thread (on JACK the audio thread): it is parsed in
// place, the instrument is called there directly, and the note messages for the sequencer go
// through a lock-free queue to the main thread, which records them in arrival order; the receive
// thread never allocates, locks or waits for the main thread. The keyboard's
// events arrive on the main thread and reach the instrument and the sequencer in that order.
//
// The host screen derives from it and says where messages go (instrument, sequencer, MIDI
// wrapper).

#include <cstddef>
#include <cstdint>
#include <memory>

#include "frameworks/pelma/PGMidi.h"
#include "keyboard/KRPianoViewDelegate.h"
#include "platform/audio/AudioUnit.h"
#include "platform/foundation/LockFreeQueues.h"
#include "platform/foundation/MainQueueSignal.h"

class KRSequencerController;

class MidiEventRouter : public KRPianoViewDelegate,
                        public PGMidiDelegate,
                        public PGMidiSourceDelegate {
 public:
  // Keyboard side, main thread.
  void pianoKeyPressed(std::int32_t key, float velocity) override;
  void pianoKeyReleased(std::int32_t key) override;
  void modWheelChanged(float value) override;
  void pitchWheelChanged(float value) override;
  void panic() override;

  // MIDI side. midiReceived runs on the receive thread.
  void midiReceived(PGMidiSource* source, const std::uint8_t* packetList,
                    std::size_t size) noexcept override;
  void sourceAdded(PGMidi* midi, PGMidiSource* source) override;
  void sourceRemoved(PGMidi* midi, PGMidiSource* source) override;
  void destinationAdded(PGMidi* midi, PGMidiDestination* destination) override;
  void destinationRemoved(PGMidi* midi, PGMidiDestination* destination) override;

  // Forwards one message: to the instrument at once; a note on or off also to the sequencer,
  // on the main thread. `channel` and `startFrame` are not used: the instrument hears
  // everything on channel 1, as soon as it can.
  void handleMidiEvent(std::uint8_t status, std::uint8_t channel, std::uint8_t data1,
                       std::uint8_t data2, std::uint64_t startFrame) noexcept;

 protected:
  MidiEventRouter() = default;
  ~MidiEventRouter();

  // Where the messages go. synth() and midi() are read from the receive thread too.
  virtual platform::AudioComponentInstance synth() const = 0;
  virtual KRSequencerController* sequencerController() const = 0;
  virtual PGMidi* midi() const = 0;
  // Whether note messages go to a sequencer at all (read on the receive thread; fixed for the
  // router's life): without one, the receive thread neither queues them nor wakes the main thread.
  virtual bool recordsNotes() const { return true; }

 private:
  void send(std::uint32_t status, std::uint32_t data1, std::uint32_t data2) const noexcept;
  // Main thread: hands the queued note messages to the sequencer.
  void recordQueuedNotes();

  struct NoteMessage {
    std::uint8_t status;
    std::uint8_t key;
    float velocity;
  };
  // Note messages on their way from the receive threads to the sequencer. One sequencer step
  // holds far fewer; a burst beyond the queue's size is dropped and counted.
  platform::MpscQueue<NoteMessage, 1024> midiToMain_;
  std::atomic<std::uint32_t> notesDropped_{0};
  platform::MainQueueSignal notesQueued_{[this] { recordQueuedNotes(); }};
};

// A router whose destinations are given when it is made: the command line's listen mode, tests and
// benchmarks use it. `sequencer` may be null (MIDI then plays the instrument only).
class ConnectedMidiRouter final : public MidiEventRouter {
 public:
  ConnectedMidiRouter(platform::AudioComponentInstance instrument, KRSequencerController* sequencer,
                      PGMidi* midi)
      : instrument_(instrument), sequencer_(sequencer), midi_(midi) {}

 protected:
  platform::AudioComponentInstance synth() const override { return instrument_; }
  KRSequencerController* sequencerController() const override { return sequencer_; }
  PGMidi* midi() const override { return midi_; }
  bool recordsNotes() const override { return sequencer_ != nullptr; }

 private:
  platform::AudioComponentInstance instrument_;
  KRSequencerController* sequencer_;
  PGMidi* midi_;
};
