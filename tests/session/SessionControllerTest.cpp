// The window's side of sessions, with the real sequencer and keyboard screens and the real Pelma
// instrument: the last session comes back whole at the next launch (and not with a fresh one),
// only one running window writes it, every pattern edit can be undone and redone, and what
// cannot be read or written is shown in the window while everything else goes on.

#include "session/SessionController.h"

#include <gtest/gtest.h>

#include <QFile>
#include <QWidget>
#include <memory>

#include "frameworks/krui/KRPianoView.h"
#include "frameworks/krui/KRSlider.h"
#include "keyboard/KRBPMControl.h"
#include "keyboard/PianoViewController.h"
#include "platform/ui/Alert.h"
#include "platform/ui/Button.h"
#include "sequencer/KRSeqTrackView.h"
#include "sequencer/KRStepSequence.h"
#include "support/FileSizeLimit.h"
#include "support/OfflineRig.h"
#include "support/TemporaryFolder.h"

namespace {

// A window with the two screens and a session controller on them; `instrument` may be null.
struct Window {
  explicit Window(platform::AudioUnit* instrument = nullptr) {
    sequencer = new KRSequencerController(KRSequencerController::kTabletInterface, &widget);
    keyboard = new PianoViewController(PianoViewController::kTabletInterface, &widget);
    sessions = std::make_unique<session::SessionController>(
        &widget, sequencer, keyboard, [instrument]() -> std::shared_ptr<platform::AudioUnit> {
          return instrument ? std::shared_ptr<platform::AudioUnit>(instrument, [](auto*) {})
                            : nullptr;
        });
  }
  // A chord recorded into the selected steps, as the keyboard plays it with Record on.
  void record(std::initializer_list<std::pair<int, float>> keys, int from, int to) {
    sequencer->trackView()->updateSelection(from, to);
    if (!sequencer->writeMode()) sequencer->writeModeButtonPressed(nullptr);
    for (const auto& [key, velocity] : keys)
      sequencer->keyOn(key, velocity);
    for (const auto& [key, velocity] : keys)
      sequencer->keyOff(key);
  }
  void drag(KRSlider* slider, std::initializer_list<float> values) {
    for (float value : values) {
      slider->setValue(value);
      if (slider == sequencer->gateSlider()) sequencer->gateUpdated(slider);
      if (slider == sequencer->swingSlider()) sequencer->swingUpdated(slider);
    }
  }

  QWidget widget;
  KRSequencerController* sequencer;
  PianoViewController* keyboard;
  std::unique_ptr<session::SessionController> sessions;
};

class SessionControllerTest : public ::testing::Test {
 protected:
  SessionControllerTest() { setenv("XDG_STATE_HOME", state.path().c_str(), 1); }
  ~SessionControllerTest() override { unsetenv("XDG_STATE_HOME"); }
  TemporaryFolder state;
};

TEST_F(SessionControllerTest, TheLastSessionComesBackWholeAndOnlyOneWindowWritesIt) {
  session::Session kept;
  {
    testing_support::OfflineRig rig("Pelma");
    Window before(rig.unit.get());
    before.sessions->launch(false);
    before.sessions->instrumentReady();
    EXPECT_TRUE(before.sessions->writesLastSession());
    before.sequencer->autoIncrementButtonPressed(before.sequencer->autoIncrementButton());
    before.record({{60, 0.5f}, {64, 1.0f}, {67, 0.7f}}, 0, 0);
    before.record({{62, 0.4f}}, 4, 5);
    before.sequencer->tieButtonPressed(nullptr);
    before.drag(before.sequencer->gateSlider(), {0.8f, 1.0f});
    before.keyboard->octavePlus(before.keyboard->octavePlusButton());
    before.keyboard->holdButtonPressed(before.keyboard->holdButton());
    const std::string symbol = rig.unit->parameterSymbols().front();
    rig.unit->setParameterValue(symbol, rig.unit->parameterValue(symbol) * 0.5f + 0.01f);
    before.sessions->keepLastSession();
    kept = before.sessions->capture();
  }
  EXPECT_EQ(kept.pattern.steps[0].keys, (std::vector<session::Key>{{60, 64}, {64, 128}, {67, 89}}));
  EXPECT_TRUE(kept.autoStep);
  EXPECT_TRUE(kept.instrumentState.contains("pset:Preset") ||
              kept.instrumentState.contains("Preset"));

  testing_support::OfflineRig rig("Pelma");
  Window after(rig.unit.get());
  after.sessions->launch(false);
  after.sessions->instrumentReady();
  EXPECT_EQ(after.sessions->capture(), kept);
  EXPECT_TRUE(after.keyboard->holdButton()->isSelected());
  EXPECT_FALSE(after.widget.isWindowModified());

  // Started anyway beside it: it reads the last session but never writes it.
  Window fresh;
  fresh.sessions->launch(true);
  EXPECT_FALSE(fresh.sessions->writesLastSession());
  EXPECT_EQ(fresh.sessions->capture().pattern, session::Pattern{});
  fresh.record({{50, 1.0f}}, 2, 2);
  fresh.sessions->keepLastSession();
  EXPECT_EQ(session::readSessionFile(session::SessionController::lastSessionPath(), {}).session,
            kept);
}

TEST_F(SessionControllerTest, UndoesAndRedoesEveryPatternEditADragAsOneStep) {
  Window window;
  std::vector<session::Pattern> states{window.sessions->capture().pattern};
  auto edited = [&] { states.push_back(window.sessions->capture().pattern); };
  window.record({{60, 1.0f}, {63, 0.5f}}, 0, 3);
  edited();
  window.sequencer->tieButtonPressed(nullptr);
  edited();
  window.sequencer->trackView()->updateSelection(2, 2);
  window.sequencer->clearButtonPressed(nullptr);
  edited();
  window.drag(window.sequencer->gateSlider(), {0.6f, 0.7f, 0.9f});
  edited();
  window.drag(window.sequencer->swingSlider(), {0.3f});
  edited();
  window.sequencer->bpmControl()->setValue(150);
  window.sequencer->bpmControlDidChange(window.sequencer->bpmControl());
  edited();
  QUndoStack& stack = *window.sessions->undoStack();
  ASSERT_EQ(stack.count(), 6);
  for (auto state = states.rbegin() + 1; state != states.rend(); ++state) {
    stack.undo();
    EXPECT_EQ(window.sessions->capture().pattern, *state);
  }
  EXPECT_EQ(window.sequencer->stepSequence()->gate(), 0.5f);
  for (auto state = states.begin() + 1; state != states.end(); ++state) {
    stack.redo();
    EXPECT_EQ(window.sessions->capture().pattern, *state);
  }
  EXPECT_FLOAT_EQ(window.sequencer->stepSequence()->swing(), 0.3f);
}

TEST_F(SessionControllerTest, ShowsWhatItCannotReadOrWriteInTheWindowAndGoesOn) {
  Window window;
  window.sessions->launch(false);
  window.record({{60, 1.0f}}, 0, 0);
  window.sessions->keepLastSession();
  const QString last = session::SessionController::lastSessionPath();
  QFile lastFile(last);
  ASSERT_TRUE(lastFile.open(QIODevice::ReadOnly));
  const QByteArray lastText = lastFile.readAll();
  lastFile.close();
  const session::Pattern pattern = window.sessions->capture().pattern;
  auto sheets = [&] { return window.widget.findChildren<platform::Sheet*>().size(); };

  const auto truncated = state.write("cut.pelmasession", lastText.left(40).toStdString());
  EXPECT_FALSE(window.sessions->openFile(QString::fromStdString(truncated.string())));
  EXPECT_TRUE(window.sessions->lastMessage().contains("cut.pelmasession cannot be opened"));
  EXPECT_EQ(window.sessions->capture().pattern, pattern);
  EXPECT_TRUE(window.sessions->currentFile().isEmpty());
  EXPECT_GE(sheets(), 1);

  QByteArray elsewhere = lastText;
  elsewhere.replace("\"uri\": \"\"", "\"uri\": \"urn:not:installed\"")
      .replace("\"gate\": 0.5", "\"gate\": 7");
  const auto other = state.write("other.pelmasession", elsewhere.toStdString());
  EXPECT_TRUE(window.sessions->openFile(QString::fromStdString(other.string())));
  EXPECT_TRUE(window.sessions->lastMessage().contains("\"gate\" is not a number"));
  EXPECT_EQ(window.sessions->capture().pattern, pattern);
  EXPECT_EQ(window.widget.windowTitle(), "other.pelmasession[*] — Pelma");

  // The last session cannot be written: one message, and the one kept before stays whole.
  ASSERT_TRUE(lastFile.open(QIODevice::ReadOnly));
  const QByteArray keptText = lastFile.readAll();
  lastFile.close();
  window.record({{72, 1.0f}}, 1, 1);
  {
    const FileSizeLimit limit(64);
    window.sessions->keepLastSession();
  }
  EXPECT_TRUE(window.sessions->lastMessage().contains("The session cannot be kept"));
  ASSERT_TRUE(lastFile.open(QIODevice::ReadOnly));
  EXPECT_EQ(lastFile.readAll(), keptText);
}

}  // namespace
