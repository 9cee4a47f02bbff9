#pragma once

// The root screen: it wires MIDI input, creates the audio engine and has it instantiate the
// instrument (chosen by its name, "Pelma" unless the command line names another), embeds the
// instrument's editor in the container at the top, and lays out the sequencer screen and the
// keyboard screen below it. It is also the router of every note and MIDI event (MidiEventRouter).
//
// Layouts: on tablets (the desktop's default) the editor area is 1024 × 335 resized with the
// window's width, the keyboard the lower third and the sequencer a band of height × 128/768 above
// it; on phones the editor area is 667 × 200 scaled to the width, a 100-point sequencer strip
// that the keyboard's Seq button shows and hides, and the keyboard below. Main thread.

#include <QWidget>
#include <atomic>
#include <functional>
#include <memory>
#include <vector>

#include "audio/AudioEngine.h"
#include "frameworks/pelma/AudioUnitViewController.h"
#include "frameworks/pelma/MIDIManager.h"
#include "keyboard/PianoViewController.h"
#include "midi/MidiEventRouter.h"
#include "midi/MidiLearn.h"
#include "sequencer/KRSequencerController.h"

class MidiLearnMenu;
class PresetsMenu;

class ViewController : public QWidget, public MidiEventRouter {
 public:
  static constexpr float kPhoneDesignWidth = 667.0f;
  static constexpr float kPhonePlugInHeight = 200.0f;
  static constexpr float kPhoneSequencerHeight = 100.0f;
  static constexpr float kTabletPlugInWidth = 1024.0f;
  static constexpr float kTabletPlugInHeight = 335.0f;
  static constexpr float kTabletScaleBase = 0.0009765625f;  // 1 / 1024
  static constexpr float kTabletCentreOffset = 47.0f;
  static constexpr float kTabletGap = 2.0f;
  // The message that asks the Pelma instrument to re-read its bank folder.
  static constexpr const char* kRefreshBanksMessage = "urn:pelma:synth#refreshBanks";

  // `instrumentName` is the component chosen (the application's is "Pelma"); `midi` the MIDI
  // wrapper (the shared one in the application).
  explicit ViewController(QString instrumentName = QStringLiteral("Pelma"), PGMidi* midi = nullptr,
                          QWidget* parent = nullptr);
  ~ViewController() override;

  void viewDidLoad();
  // The first installed instrument with the chosen name; an empty description (on which
  // instantiation fails, with a log line) when there is none. Creates an AudioEngine as it goes.
  platform::AudioComponentDescription getPelmaDescription();
  void embedPlugInView(std::shared_ptr<AudioUnitViewController> controller);
  void viewWillLayoutSubviews();
  // Writes the instrument's full state as a property list to "testpreset.aupreset" in the
  // documents folder, replacing the last one.
  void savePreset(QObject* sender);
  void setCS(QWidget* view);
  // The screen edges whose system gestures wait for the application: top and bottom (a phone's
  // gesture; a desktop window has none).
  static constexpr int preferredScreenEdgesDeferringSystemGestures() { return 5; }
  // When the application ends: nothing more reaches the instrument, every note is released and
  // faded, and the audio output stops.
  void stopCleanly();
  // Development aids, called by nothing: an empty sequence played, and four notes in a loop
  // started and stopped at once.
  void playSequence();
  void playing4NotesInLoop();

  // Runs each time an instrument is made, before anything can play it (its state can be set).
  void setInstrumentReadyObserver(std::function<void()> observer) {
    instrumentReadyObserver_ = std::move(observer);
  }

  QWidget* auContainerView() const { return auContainerView_; }
  void setAuContainerView(QWidget* view) { auContainerView_ = view; }
  const std::shared_ptr<AudioUnitViewController>& audioUnitViewCotnroller() const {
    return audioUnitViewCotnroller_;
  }
  void setAudioUnitViewCotnroller(std::shared_ptr<AudioUnitViewController> controller) {
    audioUnitViewCotnroller_ = std::move(controller);
  }
  KRSequencerController* seqController() const { return seqController_; }
  PianoViewController* pianoViewController() const { return pianoViewController_; }
  AudioEngine* audioEngine() const { return audioEngine_.get(); }
  // The instrument's presets and MIDI learn, as menus for the window's menu bar, and the MIDI
  // learn map (kept with the session).
  PresetsMenu* presetsMenu() const { return presetsMenu_; }
  MidiLearnMenu* midiLearnMenu() const { return midiLearnMenu_; }
  MidiLearn& midiLearn() { return midiLearn_; }

 protected:
  // MidiEventRouter: where messages go.
  platform::AudioComponentInstance synth() const override;
  KRSequencerController* sequencerController() const override { return seqController_; }
  PGMidi* midi() const override { return midi_; }

  void resizeEvent(QResizeEvent* event) override;

 private:
  static bool isPhone();
  void engineReady();
  // In the editor's place: the instrument stopped working, with a button that makes it again.
  void showInstrumentStopped();
  void toggleSequencer();
  // The tablet re-flow: sequencer and keyboard below the editor area when they overlap it.
  void reflowBelow(float bottom);
  // Desktop windows are resized at will: the tablet frames are laid out again for the new size.
  void layoutTabletForSize();
  // On phones the sequencer strip sits directly above the keyboard, shown or not.
  void placePhoneSequencerStrip();
  // The tablet editor's scale: the window's width over 1024, held down so that the keyboard keeps
  // the lower third when the window is far wider than a tablet for its height.
  float tabletEditorRatio() const;
  // Whether the editor at its design size leaves the keyboard at least a quarter of the window.
  bool tabletEditorFitsUnscaled() const;

  QString instrumentName_;
  PGMidi* midi_;
  KRSequencerController* seqController_ = nullptr;      // child widget, owned by Qt
  PianoViewController* pianoViewController_ = nullptr;  // child widget, owned by Qt
  std::unique_ptr<AudioEngine> audioEngine_;
  std::atomic<platform::AudioComponentInstance> instrument_{nullptr};  // the engine's, once ready
  QWidget* auContainerView_ = nullptr;                                 // from the interface file
  std::shared_ptr<AudioUnitViewController> audioUnitViewCotnroller_;
  std::function<void()> instrumentReadyObserver_;
  bool loaded_ = false;
  bool stopped_ = false;
  MidiLearn midiLearn_;
  PresetsMenu* presetsMenu_ = nullptr;      // owned by Qt
  MidiLearnMenu* midiLearnMenu_ = nullptr;  // owned by Qt
  std::vector<std::unique_ptr<platform::MusicSequence>> aidSequences_;
  std::vector<std::unique_ptr<platform::MusicPlayer>> aidPlayers_;
};
