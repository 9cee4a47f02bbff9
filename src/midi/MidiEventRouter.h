#pragma once

// The one way to the instrument: every key, wheel and panic event of the keyboard screen and every
// message of the MIDI sources becomes one three-byte channel message sent at once to the
// instrument, on channel 1 (see MidiMessages.h). Keys from the keyboard and note messages from
// MIDI are also handed to the sequencer screen, which records them in write mode.
//
// MIDI arrives on the MIDI system's receive thread: it is parsed in place, the instrument is
// called there directly, and the sequencer calls are queued on the main queue, one task per note
// message, in arrival order; the receive thread never waits for the main thread. The keyboard's
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
                    std::size_t size) override;
  void sourceAdded(PGMidi* midi, PGMidiSource* source) override;
  void sourceRemoved(PGMidi* midi, PGMidiSource* source) override;
  void destinationAdded(PGMidi* midi, PGMidiDestination* destination) override;
  void destinationRemoved(PGMidi* midi, PGMidiDestination* destination) override;

  // Forwards one message: to the instrument at once; a note on or off also to the sequencer,
  // through the main queue. `channel` and `startFrame` are not used: the instrument hears
  // everything on channel 1, as soon as it can.
  void handleMidiEvent(std::uint8_t status, std::uint8_t channel, std::uint8_t data1,
                       std::uint8_t data2, std::uint64_t startFrame);

 protected:
  MidiEventRouter() = default;
  ~MidiEventRouter();

  // Where the messages go. synth() and midi() are read from the receive thread too.
  virtual platform::AudioComponentInstance synth() const = 0;
  virtual KRSequencerController* sequencerController() const = 0;
  virtual PGMidi* midi() const = 0;

 private:
  void send(std::uint32_t status, std::uint32_t data1, std::uint32_t data2) const;

  // Lets queued sequencer tasks see whether the router still exists.
  std::shared_ptr<int> alive_ = std::make_shared<int>(0);
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

 private:
  platform::AudioComponentInstance instrument_;
  KRSequencerController* sequencer_;
  PGMidi* midi_;
};
