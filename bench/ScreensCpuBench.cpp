// The main thread's CPU while the keyboard screen and the sequencer screen are shown, as the host
// window stacks them: first with the sequencer stopped, then playing (the playhead timer running
// and the grid redrawn at every step), against an empty window of the same size on the same event
// loop (the baseline). Offscreen, so no display is needed; the sequence plays through a real
// audio graph (JACK when a server runs, else the clocked null output).
//
//   bench_screens_cpu [SECONDS]     (default 20 s for each of the three phases)

#include <time.h>

#include <QApplication>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QTimer>
#include <QVBoxLayout>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "keyboard/PianoViewController.h"
#include "platform/audio/AudioGraph.h"
#include "platform/ui/Button.h"
#include "sequencer/KRSeqTrackView.h"
#include "sequencer/KRSequencerController.h"

namespace {

double threadSeconds() {
  timespec now{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
  return now.tv_sec + now.tv_nsec * 1e-9;
}

// Runs the event loop for `seconds`; returns the main thread's CPU share of one core.
double runEventLoop(double seconds) {
  QEventLoop loop;
  QTimer::singleShot(static_cast<int>(seconds * 1000), &loop, &QEventLoop::quit);
  QElapsedTimer wall;
  wall.start();
  const double cpuBefore = threadSeconds();
  loop.exec();
  return (threadSeconds() - cpuBefore) / (wall.nsecsElapsed() * 1e-9);
}

void recordChord(KRSequencerController& sequencer, int step, std::initializer_list<int> notes) {
  sequencer.trackView()->updateSelection(step, step);
  for (int note : notes)
    sequencer.keyOn(note, 0.8f);
  for (int note : notes)
    sequencer.keyOff(note);
}

}  // namespace

int main(int argc, char** argv) {
  if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM")) qputenv("QT_QPA_PLATFORM", "offscreen");
  QApplication app(argc, argv);
  const double seconds = argc > 1 ? std::atof(argv[1]) : 20.0;
  if (seconds <= 0.0) {
    std::fprintf(stderr, "usage: bench_screens_cpu [SECONDS]\n");
    return 2;
  }

  QWidget empty;
  empty.resize(1024, 384);
  empty.show();
  const double baseline = runEventLoop(seconds);
  empty.hide();

  QWidget window;
  auto* layout = new QVBoxLayout(&window);
  layout->setContentsMargins(0, 0, 0, 0);
  layout->setSpacing(0);
  auto* sequencer = new KRSequencerController(KRSequencerController::kTabletInterface);
  auto* keyboard = new PianoViewController(PianoViewController::kTabletInterface);
  sequencer->setFixedHeight(128);
  layout->addWidget(sequencer);
  layout->addWidget(keyboard);
  window.resize(1024, 384);
  window.show();

  platform::AudioGraph graph;
  graph.connect(graph.mainMixerNode(), graph.outputNode(), std::nullopt);
  graph.start();
  graph.setMusicSequence(sequencer->getMusicSequence());
  sequencer->writeModeButtonPressed(sequencer->writeModeButton());
  recordChord(*sequencer, 0, {48, 60, 64, 67});
  recordChord(*sequencer, 4, {45, 57, 60, 64});
  recordChord(*sequencer, 8, {41, 57, 60, 65});
  recordChord(*sequencer, 12, {43, 55, 59, 62});
  sequencer->writeModeButtonPressed(sequencer->writeModeButton());

  const double stopped = runEventLoop(seconds);
  sequencer->playButtonPressed(sequencer->playButton());
  const double playing = runEventLoop(seconds);
  sequencer->playButtonPressed(sequencer->playButton());
  graph.setMusicSequence(nullptr);
  graph.pause();

  std::printf("Main-thread CPU over %.0f s each (audio: %s):\n", seconds,
              graph.outputName().c_str());
  std::printf("  empty window (baseline): %6.3f %% of a core\n", baseline * 100);
  std::printf("  screens, stopped:        %6.3f %% of a core (%.2f x baseline)\n", stopped * 100,
              baseline > 0 ? stopped / baseline : 0.0);
  std::printf("  screens, playing:        %6.3f %% of a core (%.2f x baseline)\n", playing * 100,
              baseline > 0 ? playing / baseline : 0.0);
  return 0;
}
