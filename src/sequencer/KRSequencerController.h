#pragma once

// The sequencer screen: the transport (play/stop from the top), tempo, gate, swing, tie and clear
// for the selected steps, and chord recording: while write mode is on, the keys played on the
// keyboard or over MIDI are gathered and, when the last key is up, the keys released within
// 0.3 s of it are written as one chord into every selected step. A display-synchronised timer
// moves the grid's playhead.
//
// It owns the music sequence with its note track and tempo track, the music player, the step
// sequence and the grid. The host attaches getMusicSequence() to its audio graph, so the player
// plays the sequence through the instrument. Made from one of two interface files:
// "KRSequencerController" (tablet) or "KRSequencerControlleriPhone" (phone). Main thread only.

#include <QPointer>
#include <QWidget>
#include <array>
#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

#include "frameworks/krui/KRGradientLayer.h"
#include "keyboard/KeyEvent.h"
#include "platform/foundation/MonotonicClock.h"
#include "platform/music/MusicEventIterator.h"
#include "platform/music/MusicPlayer.h"
#include "platform/music/MusicSequence.h"
#include "platform/ui/Popover.h"
#include "platform/ui/StripScale.h"

class KRBPMControl;
class KRSeqTrackView;
class KRSlider;
class KRStepSequence;
namespace platform {
class Button;
class DisplayLink;
}  // namespace platform

class KRSequencerController : public QWidget {
 public:
  static constexpr const char* kTabletInterface = "KRSequencerController";
  static constexpr const char* kPhoneInterface = "KRSequencerControlleriPhone";
  // Keys released this long before the last release still belong to its chord.
  static constexpr double kChordGatheringSeconds = 0.3;

  // Loads the named interface file (an unknown name is logged and the tablet one used), connects
  // the controls and runs viewDidLoad. `clock` times the chord gathering; it must outlive the
  // screen.
  explicit KRSequencerController(
      const QString& nibName, QWidget* parent = nullptr,
      const platform::MonotonicClock& clock = platform::MonotonicClock::system());
  ~KRSequencerController() override;

  void viewDidLoad();
  void viewWillLayoutSubviews();

  platform::MusicSequence* getMusicSequence() const { return musicSequence_.get(); }

  // Recording, from the keyboard and from MIDI. `key` must be 0..255 (MIDI notes are 0..127):
  // debug builds assert it, release builds log one line and ignore the call.
  void keyOn(std::int32_t key, float velocity);
  void keyOff(std::int32_t key);

  // Actions.
  void playButtonPressed(platform::Button* sender);
  void bpmControlDidChange(KRBPMControl* sender);
  void gateUpdated(KRSlider* sender);
  void swingUpdated(KRSlider* sender);
  void clearButtonPressed(platform::Button* sender);
  void tieButtonPressed(platform::Button* sender);
  void writeModeButtonPressed(platform::Button* sender);
  void autoIncrementButtonPressed(platform::Button* sender);
  // Opens a new bank shop in a popover beside the button.
  void appMenuButtonPressed(platform::Button* sender);
  // The popover shown now, or null.
  platform::Popover* presentedPopover() const { return presented_; }

  // What an edit of the pattern changed; the observer hears each one after it is made (a gate,
  // swing or tempo drag as a run of edits).
  enum class PatternEdit { chord, clear, tie, gate, swing, tempo };
  void setPatternEditObserver(std::function<void(PatternEdit)> observer) {
    patternEditObserver_ = std::move(observer);
  }

  // Display timer: moves the playhead.
  void updatePlayhead();
  // Kept empty.
  void updateTrackView() {}

  // For the host and for inspection.
  platform::MusicTrack* musicTrack() const { return musicTrack_; }
  platform::MusicPlayer* musicPlayer() const { return musicPlayer_.get(); }
  platform::MusicTrack* tempoTrack() const { return tempoTrack_; }
  KRStepSequence* stepSequence() const { return stepSequence_.get(); }
  KRSeqTrackView* trackView() const { return trackView_; }
  const KRGradientLayer& gradient() const { return gradient_; }
  bool writeMode() const { return writeMode_; }
  std::int32_t numKeysPressed() const { return numKeysPressed_; }
  std::int32_t playheadRow() const { return playheadRow_; }
  const platform::DisplayLink* displayLink() const { return displayLink_; }

  platform::Button* writeModeButton() const { return writeModeButton_; }
  platform::Button* playButton() const { return playButton_; }
  platform::Button* appMenuButton() const { return appMenuButton_; }
  platform::Button* autoIncrementButton() const { return autoIncrementButton_; }
  platform::Button* tieButton() const { return tieButton_; }
  platform::Button* clearButton() const { return clearButton_; }
  KRBPMControl* bpmControl() const { return bpmControl_; }
  KRSlider* gateSlider() const { return gateSlider_; }
  KRSlider* swingSlider() const { return swingSlider_; }

 protected:
  void resizeEvent(QResizeEvent* event) override;
  void paintEvent(QPaintEvent* event) override;

 private:
  platform::StripScale stripScale_;
  double secondsToNextStep(double beats) const;
  template <typename Ui>
  void bindOutlets(Ui& ui);
  void connectActions();
  void patternEdited(PatternEdit edit) {
    if (patternEditObserver_) patternEditObserver_(edit);
  }
  static bool isRecordableKey(std::int32_t key);

  const platform::MonotonicClock& clock_;
  std::function<void(PatternEdit)> patternEditObserver_;

  platform::MusicTrack* musicTrack_ = nullptr;
  std::unique_ptr<platform::MusicSequence> musicSequence_;
  std::unique_ptr<platform::MusicPlayer> musicPlayer_;
  QPointer<platform::Popover> presented_;
  KRGradientLayer gradient_;
  std::shared_ptr<KRStepSequence> stepSequence_;
  std::vector<std::shared_ptr<KeyEvent>> keysReleased_;
  std::int32_t numKeysPressed_ = 0;
  std::array<float, 256> keyVelocities_{};
  std::unique_ptr<platform::MusicEventIterator> iterator_;
  platform::MusicTrack* tempoTrack_ = nullptr;
  KRSeqTrackView* trackView_ = nullptr;  // a child widget, owned by Qt
  std::int32_t playheadRow_ = 0;
  bool writeMode_ = false;
  platform::Button* writeModeButton_ = nullptr;
  KRBPMControl* bpmControl_ = nullptr;
  platform::Button* playButton_ = nullptr;
  KRSlider* gateSlider_ = nullptr;
  KRSlider* swingSlider_ = nullptr;
  platform::Button* appMenuButton_ = nullptr;
  platform::Button* autoIncrementButton_ = nullptr;
  platform::Button* tieButton_ = nullptr;
  platform::Button* clearButton_ = nullptr;
  platform::DisplayLink* displayLink_ = nullptr;  // a child object, owned by Qt
};
