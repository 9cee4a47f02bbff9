#include "sequencer/KRSequencerController.h"

#include <QPainter>
#include <algorithm>
#include <cassert>
#include <cmath>

#include "banks/KRBankStoreController.h"
#include "frameworks/krui/KRSlider.h"
#include "keyboard/KRBPMControl.h"
#include "platform/foundation/Log.h"
#include "platform/foundation/Numbers.h"
#include "platform/ui/Button.h"
#include "platform/ui/DisplayLink.h"
#include "platform/ui/InterfaceFile.h"
#include "platform/ui/NavigationController.h"
#include "sequencer/KRSeqTrackView.h"
#include "sequencer/KRStepSequence.h"
#include "ui_KRSequencerController.h"
#include "ui_KRSequencerControlleriPhone.h"

namespace {

constexpr double kStartTempo = 120.0;
constexpr double kLoopBeats = 4.0;
// The tempo track is cleared over this span before the one new tempo event is written.
constexpr double kTempoClearEnd = 100.0;
// Playhead row: four steps a beat, one step ahead of the step being played.
constexpr int kStepsPerBeat = 4;
constexpr int kPlayheadOffset = 17;
constexpr int kPlayheadModulus = 16;

}  // namespace

KRSequencerController::KRSequencerController(const QString& nibName, QWidget* parent,
                                             const platform::MonotonicClock& clock)
    : QWidget(parent), clock_(clock) {
  platform::loadInterfaceFile<Ui::KRSequencerController, Ui::KRSequencerControlleriPhone>(
      this, nibName, kTabletInterface, kPhoneInterface, [this](auto& ui) { bindOutlets(ui); });
  connectActions();
  viewDidLoad();
  stripScale_ = platform::StripScale(this);  // the interface file's size is the design
}

KRSequencerController::~KRSequencerController() = default;

template <typename Ui>
void KRSequencerController::bindOutlets(Ui& ui) {
  writeModeButton_ = ui.writeModeButton;
  bpmControl_ = ui.bpmControl;
  playButton_ = ui.playButton;
  gateSlider_ = ui.gateSlider;
  swingSlider_ = ui.swingSlider;
  appMenuButton_ = ui.appMenuButton;
  autoIncrementButton_ = ui.autoIncrementButton;
  tieButton_ = ui.tieButton;
  clearButton_ = ui.clearButton;
}

void KRSequencerController::connectActions() {
  platform::connectAction(playButton_, this, &KRSequencerController::playButtonPressed);
  platform::connectAction(writeModeButton_, this, &KRSequencerController::writeModeButtonPressed);
  platform::connectAction(autoIncrementButton_, this,
                          &KRSequencerController::autoIncrementButtonPressed);
  platform::connectAction(tieButton_, this, &KRSequencerController::tieButtonPressed);
  platform::connectAction(clearButton_, this, &KRSequencerController::clearButtonPressed);
  platform::connectAction(appMenuButton_, this, &KRSequencerController::appMenuButtonPressed);
  bpmControl_->addTarget(this, [this] { bpmControlDidChange(bpmControl_); });
  gateSlider_->addTarget(this, [this] { gateUpdated(gateSlider_); });
  swingSlider_->addTarget(this, [this] { swingUpdated(swingSlider_); });
}

void KRSequencerController::viewDidLoad() {
  gradient_ = KRGradientLayer{};
  gradient_.borderColor = Qt::black;
  gradient_.borderWidth = 1.0;
  gradient_.startPoint = {0.0, 0.0};
  gradient_.endPoint = {0.0, 1.0};
  gradient_.startColor = QColor::fromRgbF(1.1f * 39 / 255, 1.1f * 46 / 255, 1.1f * 52 / 255, 1.0f);
  gradient_.endColor = QColor::fromRgbF(0.5f * 39 / 255, 0.5f * 46 / 255, 0.5f * 52 / 255, 1.0f);

  stepSequence_ = std::make_shared<KRStepSequence>();
  numKeysPressed_ = 0;
  keysReleased_.clear();
  writeMode_ = false;

  musicSequence_ = std::make_unique<platform::MusicSequence>();
  musicTrack_ = musicSequence_->newTrack();
  musicTrack_->setLoopInfo({kLoopBeats, 0});
  musicTrack_->setTrackLength(kLoopBeats);

  musicPlayer_ = std::make_unique<platform::MusicPlayer>();
  musicPlayer_->setSequence(musicSequence_.get());

  tempoTrack_ = musicSequence_->tempoTrack();
  tempoTrack_->newExtendedTempoEvent(0.0, kStartTempo);

  iterator_ = std::make_unique<platform::MusicEventIterator>(*musicTrack_);

  const auto w = static_cast<float>(width());
  const auto h = static_cast<float>(height());
  trackView_ = new KRSeqTrackView(QRectF(0.0, h * 0.5 - 4.0, w, h * 0.5).toRect(), this);

  stepSequence_->setMusicEventIterator(iterator_.get());
  stepSequence_->setMusicTrack(musicTrack_);
  trackView_->setStepSequence(stepSequence_);
  trackView_->show();

  gateSlider_->setValue(stepSequence_->gate());

  // The playhead only moves while the player plays, so the timer sleeps while it is stopped.
  displayLink_ = new platform::DisplayLink(this, [this] { updatePlayhead(); });
  displayLink_->setPaused(true);
  displayLink_->addToRunLoop();
}

void KRSequencerController::viewWillLayoutSubviews() {
  const auto w = static_cast<float>(width());
  const auto h = static_cast<float>(height());
  trackView_->setGeometry(QRectF(0.0, h * 0.5 - 4.0, w, h * 0.5).toRect());
  gradient_.frame = QRectF(0.0, 0.0, w, h);
}

void KRSequencerController::resizeEvent(QResizeEvent* event) {
  QWidget::resizeEvent(event);
  stripScale_.apply();
  viewWillLayoutSubviews();
}

void KRSequencerController::paintEvent(QPaintEvent* /*event*/) {
  QPainter painter(this);
  gradient_.paint(painter);
}

// The grid is told the previous look-ahead row at each step boundary: the step that has just
// begun. Both the look-ahead and the hand-over are deliberate.
void KRSequencerController::updatePlayhead() {
  const double t = musicPlayer_->getTime();
  const std::int32_t r =
      (platform::truncateToInt32(t * kStepsPerBeat) + kPlayheadOffset) % kPlayheadModulus;
  if (musicPlayer_->isPlaying()) displayLink_->skipFramesFor(secondsToNextStep(t));
  if (r == playheadRow_) return;
  trackView_->setPlayheadPosition(playheadRow_);
  playheadRow_ = r;
}

// Nothing on the grid moves before the next step begins: the display link sleeps until then.
double KRSequencerController::secondsToNextStep(double beats) const {
  const double steps = beats * kStepsPerBeat;
  const double stepsLeft = std::floor(steps) + 1.0 - steps;
  const double beatsPerSecond = std::max(1, bpmControl_->value()) / 60.0;
  return stepsLeft / kStepsPerBeat / beatsPerSecond + 0.001;
}

void KRSequencerController::bpmControlDidChange(KRBPMControl* /*sender*/) {
  tempoTrack_->clear(0.0, kTempoClearEnd);
  tempoTrack_->newExtendedTempoEvent(0.0, static_cast<double>(bpmControl_->value()));
  if (displayLink_) displayLink_->skipFramesFor(0.0);  // the next step comes sooner or later now
  patternEdited(PatternEdit::tempo);
}

void KRSequencerController::playButtonPressed(platform::Button* /*sender*/) {
  const bool playing = musicPlayer_->isPlaying();
  if (playing) {
    musicPlayer_->stop();
    updatePlayhead();  // the last move, to where the player stopped
  } else {
    musicPlayer_->setTime(0.0);
    musicPlayer_->start();
  }
  displayLink_->setPaused(playing);
  playButton_->setSelected(!playing);
}

void KRSequencerController::gateUpdated(KRSlider* /*sender*/) {
  stepSequence_->setGate(gateSlider_->value());
  patternEdited(PatternEdit::gate);
}

void KRSequencerController::swingUpdated(KRSlider* /*sender*/) {
  stepSequence_->setSwing(swingSlider_->value());
  patternEdited(PatternEdit::swing);
}

void KRSequencerController::writeModeButtonPressed(platform::Button* /*sender*/) {
  writeMode_ = !writeMode_;
  writeModeButton_->setSelected(writeMode_);
}

void KRSequencerController::autoIncrementButtonPressed(platform::Button* /*sender*/) {
  autoIncrementButton_->setSelected(!autoIncrementButton_->isSelected());
}

bool KRSequencerController::isRecordableKey(std::int32_t key) {
  assert(key >= 0 && key < 256 && "key numbers are 0..255");
  if (key >= 0 && key < 256) return true;
  platform::log("Sequencer: key {} is not a key number (0..255); ignored", key);
  return false;
}

void KRSequencerController::keyOn(std::int32_t key, float velocity) {
  if (!writeMode_ || !isRecordableKey(key)) return;
  keyVelocities_[static_cast<std::size_t>(key)] = velocity;
  numKeysPressed_ += 1;
}

void KRSequencerController::keyOff(std::int32_t key) {
  if (!writeMode_ || !isRecordableKey(key)) return;
  numKeysPressed_ = numKeysPressed_ > 0 ? numKeysPressed_ - 1 : 0;

  auto released = std::make_shared<KeyEvent>(key, clock_);
  released->setVelocity(keyVelocities_[static_cast<std::size_t>(key)]);
  keysReleased_.push_back(std::move(released));
  if (numKeysPressed_ != 0) return;  // the chord is still being held

  KRStepSequenceKeyArray chord;
  for (const auto& event : keysReleased_) {
    if (event->timeSinceNow() > -kChordGatheringSeconds) {
      auto chordKey = std::make_shared<KRStepSequenceKey>();
      chordKey->setNumber(event->key());
      chordKey->setVelocity(event->velocity());
      chord.push_back(std::move(chordKey));
    }
  }
  if (!chord.empty()) {
    stepSequence_->setKeysToRange(chord, trackView_->selectionRange());
    patternEdited(PatternEdit::chord);
  }

  if (autoIncrementButton_->isSelected()) {
    const platform::Range selection = trackView_->selectionRange();
    // Modular narrowing: a reversed selection (a wrapped length) lands on the step after its end.
    std::int32_t next = static_cast<std::int32_t>(selection.location + selection.length);
    if (next > 15) next = 0;
    trackView_->updateSelection(next, next);
  }
  updateTrackView();
  keysReleased_.clear();
}

// Unties the whole selection when any of it is tied, otherwise ties all of it; an empty or
// wrapped selection ties.
void KRSequencerController::tieButtonPressed(platform::Button* /*sender*/) {
  const platform::Range selection = trackView_->selectionRange();
  bool tie = true;
  if (selection.location < selection.location + selection.length) {
    bool any = false;
    for (std::uint64_t i = selection.location; i < selection.location + selection.length; ++i) {
      if (stepSequence_->stepAtIndex(static_cast<std::int32_t>(i)).tie()) any = true;
    }
    tie = !any;
  }
  stepSequence_->setTieAtRange(tie, trackView_->selectionRange());
  patternEdited(PatternEdit::tie);
}

void KRSequencerController::clearButtonPressed(platform::Button* /*sender*/) {
  stepSequence_->clearStepsInRange(trackView_->selectionRange());
  patternEdited(PatternEdit::clear);
}

void KRSequencerController::appMenuButtonPressed(platform::Button* sender) {
  if (presented_) presented_->dismiss();
  auto* navigation = new platform::NavigationController(new KRBankStoreController);
  presented_ = new platform::Popover(navigation, QSize(320, 300));
  presented_->present(this, sender->geometry());
}
