#include "session/SessionController.h"

#include <QDir>
#include <QFileDialog>
#include <QFileInfo>
#include <QStandardPaths>
#include <QWidget>
#include <algorithm>
#include <cmath>

#include "frameworks/krui/KRPianoView.h"
#include "frameworks/krui/KRSlider.h"
#include "frameworks/krui/PianoView.h"
#include "keyboard/KRBPMControl.h"
#include "keyboard/PianoViewController.h"
#include "platform/audio/AudioComponent.h"
#include "platform/audio/AudioUnit.h"
#include "platform/foundation/Log.h"
#include "platform/foundation/Numbers.h"
#include "platform/ui/Alert.h"
#include "platform/ui/Button.h"
#include "sequencer/KRSeqTrackView.h"
#include "sequencer/KRStepSequence.h"

namespace session {
namespace {

constexpr int kSoonMilliseconds = 300;

QString fileFilter() {
  return QObject::tr("Pelma sessions (*.%1)").arg(kFileSuffix);
}

// One undo step: the pattern before and after an edit. Drags of one control merge into one step.
class PatternCommand : public QUndoCommand {
 public:
  PatternCommand(SessionController& owner, Pattern before, Pattern after, int mergeId,
                 const QString& text)
      : QUndoCommand(text),
        owner_(owner),
        before_(std::move(before)),
        after_(std::move(after)),
        mergeId_(mergeId) {}

  void undo() override { owner_.applyPattern(before_); }
  // The first redo is the push: the edit is already made.
  void redo() override {
    if (pushed_) owner_.applyPattern(after_);
    pushed_ = true;
  }
  int id() const override { return mergeId_; }
  bool mergeWith(const QUndoCommand* other) override {
    if (other->id() != id()) return false;
    after_ = static_cast<const PatternCommand*>(other)->after_;
    return true;
  }

 private:
  SessionController& owner_;
  Pattern before_;
  Pattern after_;
  int mergeId_;
  bool pushed_ = false;
};

}  // namespace

SessionController::SessionController(QWidget* window, KRSequencerController* sequencer,
                                     PianoViewController* keyboard, Instrument instrument,
                                     QObject* parent)
    : QObject(parent),
      window_(window),
      sequencer_(sequencer),
      keyboard_(keyboard),
      instrument_(std::move(instrument)) {
  sequencer_->setPatternEditObserver(
      [this](KRSequencerController::PatternEdit edit) { patternEdited(edit); });
  for (platform::Button* button :
       {sequencer_->autoIncrementButton(), keyboard_->holdButton(), keyboard_->lockButton(),
        keyboard_->velocityButton(), keyboard_->sizeButton(), keyboard_->octavePlusButton(),
        keyboard_->octaveMinusButton()}) {
    if (button) connect(button, &QAbstractButton::clicked, this, [this] { changed(); });
  }
  checkTimer_.setInterval(kCheckMilliseconds);
  connect(&checkTimer_, &QTimer::timeout, this, [this] { check(); });
  soonTimer_.setSingleShot(true);
  soonTimer_.setInterval(kSoonMilliseconds);
  connect(&soonTimer_, &QTimer::timeout, this, [this] { check(); });
  lastPattern_ = capturePattern();
  known_ = capture();
}

SessionController::~SessionController() {
  sequencer_->setPatternEditObserver(nullptr);
}

QString SessionController::stateFolder() {
  QString base = qEnvironmentVariable("XDG_STATE_HOME");
  if (base.isEmpty() || !QDir::isAbsolutePath(base))
    base = QDir::homePath() + QStringLiteral("/.local/state");
  return base + QStringLiteral("/pelma");
}

QString SessionController::lastSessionPath() {
  return stateFolder() + QStringLiteral("/last.") + QLatin1String(kFileSuffix);
}

QString SessionController::instrumentOf(const QString& path) {
  return readSessionFile(path, Session{}).session.instrumentUri;
}

bool SessionController::instrumentInstalled(const QString& uri) {
  if (uri.isEmpty()) return false;
  const auto components =
      platform::AudioUnitComponentManager::shared().componentsMatchingDescription(
          {platform::kAudioUnitTypeMusicDevice, 0, 0, 0, 0});
  return std::any_of(components.begin(), components.end(),
                     [&](const auto& component) { return component.uri == uri.toStdString(); });
}

void SessionController::launch(bool fresh, const QString& path) {
  QDir().mkpath(stateFolder());
  lock_ = std::make_unique<QLockFile>(stateFolder() + QStringLiteral("/last.lock"));
  lock_->setStaleLockTime(0);  // a lock is stale only when its process is gone
  ownsLastSession_ = lock_->tryLock(0);
  if (!ownsLastSession_)
    platform::log("Another Pelma keeps the last session ({}); this one does not write it",
                  lastSessionPath().toStdString());
  if (!path.isEmpty()) {
    openFile(path);
  } else if (!fresh && QFileInfo::exists(lastSessionPath())) {
    const ReadResult read = readSessionFile(lastSessionPath(), capture());
    take(read, {});
    if (!read.problems.isEmpty())
      showMessage(tr("The last session could not be read whole"),
                  read.problems.join(QStringLiteral("\n")));
  }
  checkTimer_.start();
  updateTitle();
}

void SessionController::take(const ReadResult& read, const QString& path) {
  for (const QString& problem : read.problems)
    platform::log("Session {}: {}",
                  path.isEmpty() ? lastSessionPath().toStdString() : path.toStdString(),
                  problem.toStdString());
  if (!read.read) return;
  const Session& session = read.session;
  known_ = session;
  applying_ = true;
  applyPattern(session.pattern);
  applyControls(session);
  applying_ = false;
  lastPattern_ = session.pattern;
  undoStack_.clear();
  pendingInstrument_ = session;
  if (instrument_ && instrument_()) instrumentReady();
}

void SessionController::instrumentReady() {
  std::shared_ptr<platform::AudioUnit> unit = instrument_ ? instrument_() : nullptr;
  if (!unit) return;
  // The instrument's state, then the MIDI learn map, which names the instrument's controls.
  if (pendingInstrument_) {
    const Session session = *std::exchange(pendingInstrument_, std::nullopt);
    applyInstrument(*unit, session);
    if (restoreLearnMap_) restoreLearnMap_(session.midiLearn);
  }
  savedText_ = toJson(capture());
  updateTitle();
}

void SessionController::applyInstrument(platform::AudioUnit& unit, const Session& session) {
  if (!session.instrumentUri.isEmpty() && !instrumentInstalled(session.instrumentUri)) {
    showMessage(tr("The session's instrument is not installed"),
                tr("It was made with %1, which is not installed here: its pattern is open, and "
                   "%2 plays it.")
                    .arg(session.instrumentUri, QString::fromStdString(unit.name())));
  } else if (!session.instrumentUri.isEmpty() &&
             session.instrumentUri != QString::fromStdString(unit.uri())) {
    showMessage(tr("The session is for another instrument"),
                tr("It was made with %1, not with %2, which plays now: its pattern is open; its "
                   "sound is used when Pelma starts with the session (pelma FILE).")
                    .arg(session.instrumentUri, QString::fromStdString(unit.name())));
  } else if (!session.instrumentState.isEmpty() &&
             !unit.restoreStateFromTurtle(session.instrumentState.toStdString())) {
    showMessage(tr("The instrument's sound could not be restored"),
                tr("Its state in the session is not one %1 can take; it plays as it was.")
                    .arg(QString::fromStdString(unit.name())));
  }
}

Pattern SessionController::capturePattern() const {
  Pattern pattern;
  KRStepSequence& sequence = *sequencer_->stepSequence();
  for (int i = 0; i < KRStepSequence::kStepCount; ++i) {
    const KRStepSequenceStep& step = sequence.stepAtIndex(i);
    Step& kept = pattern.steps[static_cast<std::size_t>(i)];
    kept.tie = step.tie();
    for (const auto& key : step.keys()) {
      // The velocity byte the sequencer plays: the fraction scaled by 128 and truncated.
      kept.keys.push_back(
          {key->number(), std::clamp(platform::truncateToInt32(key->velocity() * 128.0f), 0, 128)});
    }
  }
  pattern.gate = sequencer_->gateSlider()->value();
  pattern.swing = sequencer_->swingSlider()->value();
  pattern.tempo = sequencer_->bpmControl()->value();
  return pattern;
}

Session SessionController::capture() {
  Session session = known_;
  session.pattern = capturePattern();
  session.autoStep = sequencer_->autoIncrementButton()->isSelected();
  session.keyboard = {keyboard_->pianoView()->octave(), keyboard_->holdButton()->isSelected(),
                      keyboard_->lockButton()->isSelected(),
                      keyboard_->velocityButton()->isSelected(),
                      keyboard_->sizeButton()->isSelected()};
  if (saveLearnMap_) session.midiLearn = saveLearnMap_();
  if (std::shared_ptr<platform::AudioUnit> unit = instrument_ ? instrument_() : nullptr;
      unit && !pendingInstrument_) {
    session.instrumentUri = QString::fromStdString(unit->uri());
    // An instrument that cannot tell its state here keeps the one last known.
    if (const std::string state = unit->stateAsTurtle(); !state.empty())
      session.instrumentState = QString::fromStdString(state);
  }
  return session;
}

void SessionController::applyPattern(const Pattern& pattern) {
  const bool wasApplying = std::exchange(applying_, true);
  KRStepSequence& sequence = *sequencer_->stepSequence();
  sequencer_->gateSlider()->setValue(static_cast<float>(pattern.gate));
  sequence.setGate(static_cast<float>(pattern.gate));
  sequencer_->swingSlider()->setValue(static_cast<float>(pattern.swing));
  sequence.setSwing(static_cast<float>(pattern.swing));
  for (int i = 0; i < KRStepSequence::kStepCount; ++i) {
    const Step& step = pattern.steps[static_cast<std::size_t>(i)];
    KRStepSequenceKeyArray keys;
    for (const Key& kept : step.keys) {
      auto key = std::make_shared<KRStepSequenceKey>();
      key->setNumber(kept.note);
      key->setVelocity(static_cast<float>(kept.velocity) / 128.0f);
      keys.push_back(std::move(key));
    }
    sequence.setKeysAtPosition(keys, static_cast<std::uint64_t>(i));
    sequence.setTieAtPosition(step.tie, static_cast<std::uint64_t>(i));
  }
  sequence.updateMusicTrackInRange({0, KRStepSequence::kStepCount});
  sequencer_->bpmControl()->setValue(pattern.tempo);
  sequencer_->bpmControlDidChange(sequencer_->bpmControl());
  lastPattern_ = pattern;
  applying_ = wasApplying;
  changed();
}

void SessionController::applyControls(const Session& session) {
  if (sequencer_->autoIncrementButton()->isSelected() != session.autoStep)
    sequencer_->autoIncrementButtonPressed(sequencer_->autoIncrementButton());
  const Keyboard& wanted = session.keyboard;
  // The keyboard's own handlers, so that each toggle reaches its keys as a press does.
  auto toggle = [](platform::Button* button, bool on, auto handler) {
    if (button->isSelected() != on) handler(button);
  };
  toggle(keyboard_->holdButton(), wanted.hold,
         [this](auto* b) { keyboard_->holdButtonPressed(b); });
  toggle(keyboard_->lockButton(), wanted.lock,
         [this](auto* b) { keyboard_->lockButtonPressed(b); });
  toggle(keyboard_->velocityButton(), wanted.velocity,
         [this](auto* b) { keyboard_->velocityButtonPressed(b); });
  toggle(keyboard_->sizeButton(), wanted.smallKeys,
         [this](auto* b) { keyboard_->sizeButtonPressed(b); });
  for (int i = 0; i < 8 && keyboard_->pianoView()->octave() < wanted.octave; ++i)
    keyboard_->octavePlus(keyboard_->octavePlusButton());
  for (int i = 0; i < 8 && keyboard_->pianoView()->octave() > wanted.octave; ++i)
    keyboard_->octaveMinus(keyboard_->octaveMinusButton());
}

void SessionController::patternEdited(KRSequencerController::PatternEdit edit) {
  if (applying_) return;
  using Edit = KRSequencerController::PatternEdit;
  const Pattern now = capturePattern();
  if (now == lastPattern_) return;
  static const char* const names[] = {"Record chord", "Clear", "Tie", "Gate", "Swing", "Tempo"};
  const bool drag = edit == Edit::gate || edit == Edit::swing || edit == Edit::tempo;
  undoStack_.push(new PatternCommand(*this, lastPattern_, now, drag ? static_cast<int>(edit) : -1,
                                     tr(names[static_cast<int>(edit)])));
  lastPattern_ = now;
  changed();
}

void SessionController::changed() {
  soonTimer_.start();
}

void SessionController::setMidiLearnPart(std::function<QVariantList()> save,
                                         std::function<void(const QVariantList&)> restore) {
  saveLearnMap_ = std::move(save);
  restoreLearnMap_ = std::move(restore);
  if (restoreLearnMap_ && instrument_ && instrument_()) restoreLearnMap_(known_.midiLearn);
}

void SessionController::check() {
  const Session now = capture();
  const QByteArray text = toJson(now);
  if (ownsLastSession_ && text != lastWritten_) {
    if (const auto error = writeSessionFile(lastSessionPath(), now)) {
      if (!std::exchange(failedLastSession_, true))
        showMessage(tr("The session cannot be kept"),
                    tr("%1 cannot be written (%2); the one kept before stays as it was.")
                        .arg(lastSessionPath(), *error));
    } else {
      lastWritten_ = text;
      failedLastSession_ = false;
    }
  }
  if (window_) window_->setWindowModified(!savedText_.isEmpty() && text != savedText_);
}

void SessionController::keepLastSession() {
  check();
}

bool SessionController::openFile(const QString& path) {
  const ReadResult read = readSessionFile(path, capture());
  if (!read.problems.isEmpty())
    showMessage(read.read ? tr("Part of %1 could not be read").arg(QFileInfo(path).fileName())
                          : tr("%1 cannot be opened").arg(QFileInfo(path).fileName()),
                read.problems.join(QStringLiteral("\n")));
  if (!read.read) return false;
  currentFile_ = QFileInfo(path).absoluteFilePath();
  platform::log("Session opened from {}", currentFile_.toStdString());
  take(read, path);
  savedText_ = toJson(capture());
  updateTitle();
  check();
  return true;
}

void SessionController::open() {
  const QString path = QFileDialog::getOpenFileName(window_, tr("Open a session"),
                                                    QFileInfo(currentFile_).path(), fileFilter());
  if (!path.isEmpty()) openFile(path);
}

void SessionController::save() {
  if (currentFile_.isEmpty()) {
    saveAs();
    return;
  }
  writeTo(currentFile_);
}

void SessionController::saveAs() {
  QFileDialog dialog(window_, tr("Save the session"), QFileInfo(currentFile_).path(), fileFilter());
  dialog.setAcceptMode(QFileDialog::AcceptSave);
  dialog.setDefaultSuffix(QLatin1String(kFileSuffix));
  if (dialog.exec() != QDialog::Accepted || dialog.selectedFiles().isEmpty()) return;
  writeTo(dialog.selectedFiles().first());
}

bool SessionController::writeTo(const QString& path) {
  const Session now = capture();
  if (const auto error = writeSessionFile(path, now)) {
    showMessage(tr("The session was not saved"),
                tr("%1 cannot be written (%2); the file stays as it was.").arg(path, *error));
    return false;
  }
  platform::log("Session saved to {}", path.toStdString());
  known_ = now;
  currentFile_ = QFileInfo(path).absoluteFilePath();
  savedText_ = toJson(now);
  updateTitle();
  check();
  return true;
}

void SessionController::updateTitle() {
  if (!window_) return;
  const QString name = currentFile_.isEmpty() ? tr("Untitled") : QFileInfo(currentFile_).fileName();
  window_->setWindowTitle(QStringLiteral("%1[*] — Pelma").arg(name));
}

void SessionController::showMessage(const QString& title, const QString& text) {
  platform::log("{}: {}", title.toStdString(), QString(text).replace('\n', "; ").toStdString());
  lastMessage_ = title + QStringLiteral("\n") + text;
  if (window_) platform::Sheet::present(window_, title, text, {{tr("OK"), {}}});
}

}  // namespace session
