#include "app/ViewController.h"

#include <QLabel>
#include <QPushButton>
#include <QResizeEvent>
#include <QThread>
#include <QVBoxLayout>
#include <algorithm>
#include <cmath>

#include "banks/AppDelegate.h"
#include "frameworks/pelma/PlugInEditor.h"
#include "midi/MidiLearnMenu.h"
#include "platform/audio/AudioComponent.h"
#include "platform/foundation/Folders.h"
#include "platform/foundation/Log.h"
#include "platform/foundation/NotificationCenter.h"
#include "platform/foundation/PropertyListFile.h"
#include "platform/music/MusicPlayer.h"
#include "platform/ui/DeviceIdiom.h"
#include "presets/PresetsMenu.h"
#include "ui_ViewController.h"

namespace {

// "<Class: 0x…; frame = (x y; w h)>", as the log shows a view.
std::string describe(const QWidget* view) {
  const QRect f = view->geometry();
  return fmt::format("<{}: {}; frame = ({} {}; {} {}){}>", view->metaObject()->className(),
                     static_cast<const void*>(view), f.x(), f.y(), f.width(), f.height(),
                     view->isHidden() ? "; hidden = YES" : "");
}

QRect frame(float x, float y, float width, float height) {
  return QRectF(x, y, width, height).toRect();
}

}  // namespace

ViewController::ViewController(QString instrumentName, PGMidi* midi, QWidget* parent)
    : QWidget(parent), instrumentName_(std::move(instrumentName)), midi_(midi) {
  setAttribute(Qt::WA_StyledBackground);
  Ui::ViewController ui;
  ui.setupUi(this);
  auContainerView_ = ui.auContainerView;
  presetsMenu_ = new PresetsMenu(
      [this] { return audioEngine_ ? audioEngine_->synthAU() : nullptr; }, this, this);
  midiLearnMenu_ = new MidiLearnMenu(midiLearn_, this);
}

ViewController::~ViewController() {
  stopCleanly();
}

void ViewController::stopCleanly() {
  if (stopped_) return;
  stopped_ = true;
  platform::NotificationCenter::defaultCenter().removeObserver(this);
  // Nothing may reach the router or the screens once they go.
  if (midi_) {
    midi_->setDelegate(nullptr);
    if (auto* input = midi_->virtualDestinationSource()) input->removeDelegate(this);
    for (const auto& source : midi_->sources())
      source->removeDelegate(this);
    midi_ = nullptr;
  }
  if (seqController_ && seqController_->musicPlayer()->isPlaying())
    seqController_->musicPlayer()->stop();
  if (platform::AudioComponentInstance instrument = synth()) {
    platform::MusicDeviceMIDIEvent(instrument, 0xB0, 123, 0, 0);  // all notes off
    platform::MusicDeviceMIDIEvent(instrument, 0xB0, 120, 0, 0);  // all sound off
    QThread::msleep(60);                                          // a few blocks to fade
  }
  if (auto* engine = audioEngine_ ? audioEngine_->getAVAudioEngine() : nullptr) {
    engine->setMusicSequence(nullptr);
    engine->pause();
  }
}

bool ViewController::isPhone() {
  return platform::userInterfaceIdiom() == platform::UserInterfaceIdiom::phone;
}

// MIDI threads read this: they see the instrument only once it is ready, never the engine.
platform::AudioComponentInstance ViewController::synth() const {
  return instrument_.load(std::memory_order_acquire);
}

void ViewController::viewDidLoad() {
  const bool phone = isPhone();

  if (midi_) {
    midi_->setNetworkEnabled(true);
    midi_->setDelegate(this);
    for (const auto& source : midi_->sources()) {
      platform::log("MManager source:: {} {}", source->name(),
                    static_cast<int>(source->isNetworkSession()));
      source->addDelegate(this);
    }
    if (auto* input = midi_->virtualDestinationSource()) input->addDelegate(this);
  }

  const platform::AudioComponentDescription description = getPelmaDescription();
  audioEngine_ = std::make_unique<AudioEngine>();
  audioEngine_->setupAUWithComponentDescription(description, [this] { engineReady(); });
  platform::NotificationCenter::defaultCenter().addObserver(
      kAudioComponentInstanceInvalidationNotification, nullptr,
      [this](const platform::Notification& note) {
        if (audioEngine_ && note.object && note.object == audioEngine_->synthAU().get())
          showInstrumentStopped();
      },
      this);

  const auto W = static_cast<float>(width());
  const auto H = static_cast<float>(height());
  pianoViewController_ = new PianoViewController(
      phone ? PianoViewController::kPhoneInterface : PianoViewController::kTabletInterface, this);
  pianoViewController_->setGeometry(frame(0, H - H / 3, W, H / 3));
  pianoViewController_->show();
  // Held strongly by the keyboard screen; the root screen outlives it (it is its parent).
  pianoViewController_->setDelegate(
      std::shared_ptr<KRPianoViewDelegate>(static_cast<KRPianoViewDelegate*>(this), [](auto*) {}));
  if (audioUnitViewCotnroller_) audioUnitViewCotnroller_->addPassthroughView(pianoViewController_);

  seqController_ = new KRSequencerController(
      phone ? KRSequencerController::kPhoneInterface : KRSequencerController::kTabletInterface,
      this);
  const float S = H * 128.0f / 768.0f;
  seqController_->setGeometry(frame(0, (H - H / 3) - S, W, S));
  seqController_->show();

  if (phone) {
    const float scale = static_cast<float>(width()) / kPhoneDesignWidth;
    auContainerView_->setGeometry(
        frame(0, 0, scale * kPhoneDesignWidth, scale * kPhonePlugInHeight));
    const auto T = static_cast<float>(auContainerView_->height());
    seqController_->setGeometry(frame(0, T - kPhoneSequencerHeight, W, kPhoneSequencerHeight));
    seqController_->hide();
    pianoViewController_->setGeometry(frame(0, T, W, H - T));
    pianoViewController_->setExternalAction([this](std::int32_t) { toggleSequencer(); });
    platform::log("iphone viewDidLoad");
  }

  if (auto* engine = audioEngine_->getAVAudioEngine())
    engine->setMusicSequence(seqController_->getMusicSequence());
  loaded_ = true;
}

platform::AudioComponentDescription ViewController::getPelmaDescription() {
  platform::log("Checking components");
  const auto components =
      platform::AudioUnitComponentManager::shared().componentsMatchingDescription(
          {platform::kAudioUnitTypeMusicDevice, 0, 0, 0, 0});
  audioEngine_ = std::make_unique<AudioEngine>();
  for (const auto& component : components) {
    if (component.isNamed(instrumentName_.toStdString()))
      return component.audioComponentDescription;
  }
  platform::log(
      "No instrument named \"{}\" is installed (LV2 path: {}); the keyboard and the "
      "sequencer play silently",
      instrumentName_.toStdString(), platform::lv2SearchPath());
  return {};
}

void ViewController::engineReady() {
  std::shared_ptr<platform::AudioUnit> unit = audioEngine_->synthAU();
  if (!unit) return;
  if (instrumentReadyObserver_) instrumentReadyObserver_();
  instrument_.store(audioEngine_->synth(), std::memory_order_release);
  midiLearn_.setInstrument(unit);
  // A bank that arrives from outside is in the bank folder now: the instrument re-reads the
  // folder at once instead of at its next look. Instruments that do not know the message ignore
  // it.
  std::weak_ptr<platform::AudioUnit> weakUnit = unit;
  platform::NotificationCenter::defaultCenter().removeObserver(this, kBanksUpdatedNotification);
  platform::NotificationCenter::defaultCenter().addObserver(
      kBanksUpdatedNotification, nullptr,
      [weakUnit](const platform::Notification&) {
        auto instrument = weakUnit.lock();
        if (!instrument) return;
        platform::log("BanksUpdated: {} re-reads its banks", instrument->name());
        instrument->sendObjectMessage(kRefreshBanksMessage);
      },
      this);
  requestViewController(unit, this, [this](std::shared_ptr<AudioUnitViewController> controller) {
    platform::log("GOT IT <AudioUnitViewController: {}> ", static_cast<void*>(controller.get()));
    embedPlugInView(std::move(controller));
  });
  unit->setMusicalContextBlock([](double* tempo, double* numerator, std::int64_t* denominator,
                                  double*, std::int64_t*, double*) {
    *tempo = 120.0;
    *numerator = 4.0;
    *denominator = 4;
    return true;
  });
}

void ViewController::showInstrumentStopped() {
  if (auContainerView_->findChild<QWidget*>("instrumentStopped")) return;
  if (audioUnitViewCotnroller_ && audioUnitViewCotnroller_->view())
    audioUnitViewCotnroller_->view()->hide();
  auto* panel = new QWidget(auContainerView_);
  panel->setObjectName("instrumentStopped");
  panel->setStyleSheet(
      "#instrumentStopped { background-color: rgb(28, 32, 36); }"
      "QLabel { color: rgb(220, 225, 230); font-size: 15px; }");
  auto* layout = new QVBoxLayout(panel);
  const QString name = QString::fromStdString(audioEngine_->synthAU()->name());
  layout->addStretch();
  layout->addWidget(new QLabel(tr("%1 stopped working.").arg(name)), 0, Qt::AlignCenter);
  auto* again = new QPushButton(tr("Make it again"));
  again->setObjectName("makeInstrumentAgain");
  layout->addWidget(again, 0, Qt::AlignCenter);
  layout->addStretch();
  panel->setGeometry(auContainerView_->rect());
  panel->show();
  panel->raise();
  connect(again, &QPushButton::clicked, panel, [this, panel, again] {
    again->setEnabled(false);
    audioEngine_->remakeSynth([this, panel] {
      panel->deleteLater();
      audioUnitViewCotnroller_.reset();
      engineReady();
    });
  });
}

void ViewController::embedPlugInView(std::shared_ptr<AudioUnitViewController> controller) {
  audioUnitViewCotnroller_ = std::move(controller);
  QWidget* P = audioUnitViewCotnroller_ ? audioUnitViewCotnroller_->view() : nullptr;
  if (!P) {
    platform::log("Alert no view in AU!");
    return;
  }
  platform::log("VIEW: {}", describe(P));
  if (auto* placeholder = auContainerView_->findChild<QLabel*>("auPlaceholder"))
    placeholder->hide();
  midiLearnMenu_->attachToEditor(P);

  if (isPhone()) {
    const float scale = static_cast<float>(width()) / kPhoneDesignWidth;
    auContainerView_->setGeometry(
        frame(0, 0, scale * kPhoneDesignWidth, scale * kPhonePlugInHeight));
    P->setParent(auContainerView_);
    P->setGeometry(auContainerView_->rect());
    P->show();
    platform::log("VIEW: {}", describe(auContainerView_));
    const auto h = static_cast<float>(P->height());
    const auto w = static_cast<float>(P->width());
    const auto Hr = static_cast<float>(height());
    seqController_->setGeometry(frame(0, h - kPhoneSequencerHeight, w, kPhoneSequencerHeight));
    seqController_->hide();
    pianoViewController_->setGeometry(frame(0, h, w, Hr - h));
    viewWillLayoutSubviews();
    return;
  }

  P->setGeometry(frame(0, 0, kTabletPlugInWidth, kTabletPlugInHeight));
  const float ratio = tabletEditorRatio();
  const auto CH = static_cast<float>(auContainerView_->height());
  platform::log("RATIOOO {:f} ", ratio);
  if (!tabletEditorFitsUnscaled()) {
    // A window smaller than the editor's design size: the editor shrinks to fit at the top,
    // centred, and the keyboard keeps a quarter of the window.
    const auto W = static_cast<float>(width());
    const auto H = static_cast<float>(height());
    const float S = H * 128.0f / 768.0f;
    const float shrink = std::min(W * kTabletScaleBase, (H * 0.75f - S) / kTabletPlugInHeight);
    const QSize size = QSizeF(shrink * kTabletPlugInWidth, shrink * kTabletPlugInHeight).toSize();
    auContainerView_->setGeometry(QRect(QPoint((width() - size.width()) / 2, 0), size));
  } else if (ratio > 1.0f) {
    // A desktop window is resized rather than scaled: the editor lays itself out at its size.
    const QSize size = QSizeF(ratio * kTabletPlugInWidth, ratio * kTabletPlugInHeight).toSize();
    auContainerView_->setGeometry(QRect(QPoint(0, 0), size));
    const QPointF centre(width() * 0.5, std::trunc(ratio * CH * 0.5f) + kTabletCentreOffset);
    auContainerView_->move((centre - QPointF(size.width() / 2.0, size.height() / 2.0)).toPoint());
  } else {
    auContainerView_->move((width() - auContainerView_->width()) / 2, 0);  // centred when wider
  }
  reflowBelow(static_cast<float>(auContainerView_->y() + auContainerView_->height()));
  P->setParent(auContainerView_);
  P->setGeometry(auContainerView_->rect());
  platform::log("FRAME {}", describe(P));
  P->show();
}

float ViewController::tabletEditorRatio() const {
  const auto H = static_cast<float>(height());
  const float keepsThirdBelow = (H * 0.5f - kTabletCentreOffset) / kTabletPlugInHeight;
  return std::min(static_cast<float>(width()) * kTabletScaleBase, keepsThirdBelow);
}

bool ViewController::tabletEditorFitsUnscaled() const {
  const auto H = static_cast<float>(height());
  return static_cast<float>(width()) >= kTabletPlugInWidth &&
         H - kTabletPlugInHeight - H * 128.0f / 768.0f >= H * 0.25f;
}

void ViewController::reflowBelow(float bottom) {
  if (static_cast<float>(seqController_->y()) >= bottom) return;
  const auto Hr = static_cast<float>(height());
  const auto Wr = static_cast<float>(width());
  const float S = Hr * 128.0f / 768.0f;
  seqController_->setGeometry(frame(0, bottom + kTabletGap, Wr, S - kTabletGap));
  pianoViewController_->setGeometry(frame(0, S + bottom, Wr, Hr - bottom - S));
}

void ViewController::viewWillLayoutSubviews() {
  if (!isPhone()) return;
  setStyleSheet(QStringLiteral("#ViewController { background-color: black; }"));
  // The desktop has no unsafe edges: the safe area is the whole view.
  const QRectF G(0, 0, width(), height());
  platform::log("INSETS {:f} {:f} ", G.x(), G.width());
  const float scale = static_cast<float>(G.width()) / kPhoneDesignWidth;
  auContainerView_->setGeometry(
      frame(static_cast<float>(G.x()), 0, scale * kPhoneDesignWidth, scale * kPhonePlugInHeight));
  if (audioUnitViewCotnroller_ && audioUnitViewCotnroller_->view())
    audioUnitViewCotnroller_->view()->setGeometry(auContainerView_->rect());
  const float top = scale * kPhonePlugInHeight;
  pianoViewController_->setGeometry(
      frame(static_cast<float>(G.x()), top, static_cast<float>(G.width()), height() - top));
  placePhoneSequencerStrip();
}

void ViewController::placePhoneSequencerStrip() {
  const QRect keyboard = pianoViewController_->geometry();
  seqController_->setGeometry(keyboard.x(), keyboard.y() - static_cast<int>(kPhoneSequencerHeight),
                              keyboard.width(), static_cast<int>(kPhoneSequencerHeight));
}

void ViewController::layoutTabletForSize() {
  const auto W = static_cast<float>(width());
  const auto H = static_cast<float>(height());
  const float S = H * 128.0f / 768.0f;
  pianoViewController_->setGeometry(frame(0, H - H / 3, W, H / 3));
  seqController_->setGeometry(frame(0, (H - H / 3) - S, W, S));
  auContainerView_->setGeometry(frame(0, 0, kTabletPlugInWidth, kTabletPlugInHeight));
  if (audioUnitViewCotnroller_) {
    embedPlugInView(audioUnitViewCotnroller_);
  } else {
    reflowBelow(static_cast<float>(auContainerView_->height()));
  }
}

void ViewController::resizeEvent(QResizeEvent* event) {
  QWidget::resizeEvent(event);
  if (!loaded_) return;
  if (isPhone()) {
    viewWillLayoutSubviews();
  } else {
    layoutTabletForSize();
  }
}

void ViewController::toggleSequencer() {
  seqController_->setHidden(!seqController_->isHidden());
  placePhoneSequencerStrip();
  seqController_->raise();
  platform::log("SEQ");
}

void ViewController::savePreset(QObject* /*sender*/) {
  std::shared_ptr<platform::AudioUnit> unit = audioEngine_ ? audioEngine_->synthAU() : nullptr;
  if (!unit) return;
  const auto path = platform::documentsFolder() / "testpreset.aupreset";
  if (!platform::writePropertyList(unit->fullState(), path))
    platform::log("Cannot write {}", path.string());
}

void ViewController::setCS(QWidget* view) {
  view->setProperty("contentScaleFactor", 4.0);
  for (QObject* child : view->children()) {
    if (auto* widget = qobject_cast<QWidget*>(child)) setCS(widget);
  }
}

void ViewController::playSequence() {
  auto sequence = std::make_unique<platform::MusicSequence>();
  auto player = std::make_unique<platform::MusicPlayer>();
  player->setSequence(sequence.get());
  player->start();
  aidSequences_.push_back(std::move(sequence));
  aidPlayers_.push_back(std::move(player));
}

void ViewController::playing4NotesInLoop() {
  auto sequence = std::make_unique<platform::MusicSequence>();
  platform::MusicTrack* track = sequence->newTrack();
  const std::pair<double, std::uint8_t> notes[] = {{0, 63}, {1, 60}, {2, 60}, {3, 60}};
  for (const auto& [beat, note] : notes)
    track->newMIDINoteEvent(beat, {1, note, 100, 0, 0.5f});
  track->setLoopInfo({4.0, 0});
  track->setTrackLength(4.0);
  if (auto* engine = audioEngine_ ? audioEngine_->getAVAudioEngine() : nullptr)
    engine->setMusicSequence(sequence.get());
  auto player = std::make_unique<platform::MusicPlayer>();
  player->setSequence(sequence.get());
  player->start();
  player->stop();
  aidSequences_.push_back(std::move(sequence));
  aidPlayers_.push_back(std::move(player));
}
