#pragma once

// Keeps what the musician has set up, in the window: the last session, sessions as files, and
// undo of pattern edits. Main thread.
//
// The last session lives in "$XDG_STATE_HOME/pelma/last.pelmasession". It is read at launch
// (unless the launch is fresh) and written, when it changed, a moment after each change (edits
// are looked for every kCheckMilliseconds, the instrument's own state included) and on quit.
// Only one running Pelma writes it: the first takes "last.lock" beside it; another one started
// anyway starts from the same last session but never writes it, and says so in its log.
//
// Sessions as files: Open, Save and Save As with the desktop's file dialog; the window's title
// names the file and marks unsaved changes. What cannot be read or written is shown in the
// window as one message; the program goes on with what it could read, and no file it could not
// write is changed.
//
// Undo and redo: every pattern edit (recorded chords, clears, ties, gate, swing, tempo) is one
// step on a QUndoStack; a drag of gate, swing or tempo is one step.
//
// The MIDI learn map is kept by another part of the application; it plugs in through
// setMidiLearnPart and calls changed() when the map changes. Until one is plugged in, the map a
// session holds is kept as it was read and written back unchanged.

#include <QLockFile>
#include <QObject>
#include <QPointer>
#include <QString>
#include <QTimer>
#include <QUndoStack>
#include <functional>
#include <memory>
#include <optional>

#include "sequencer/KRSequencerController.h"
#include "session/SessionFile.h"

class PianoViewController;
class QWidget;
namespace platform {
class AudioUnit;
}

namespace session {

class SessionController : public QObject {
 public:
  static constexpr int kCheckMilliseconds = 1500;
  // The instrument playing now, or null while there is none (yet).
  using Instrument = std::function<std::shared_ptr<platform::AudioUnit>()>;

  // `window` shows the title and the messages; the screens are the window's.
  SessionController(QWidget* window, KRSequencerController* sequencer,
                    PianoViewController* keyboard, Instrument instrument,
                    QObject* parent = nullptr);
  ~SessionController() override;

  // "$XDG_STATE_HOME/pelma" (else ~/.local/state/pelma).
  static QString stateFolder();
  static QString lastSessionPath();
  // The instrument URI a session file names, or empty (for choosing the instrument at launch).
  static QString instrumentOf(const QString& path);
  static bool instrumentInstalled(const QString& uri);

  // At launch, before the instrument is ready: takes the last session (`fresh`: the defaults),
  // or the session file `path` when one is given. The pattern and the controls are set at once,
  // the instrument's state when instrumentReady is called.
  void launch(bool fresh, const QString& path = {});
  // The instrument is made and nothing has played it: it gets the session's state.
  void instrumentReady();
  // On quit: the last session written now.
  void keepLastSession();

  // The menu actions.
  void open();
  void save();
  void saveAs();
  // Opens a session file as Open does (from the command line, a hand-over or a drop).
  bool openFile(const QString& path);

  void setMidiLearnPart(std::function<QVariantList()> save,
                        std::function<void(const QVariantList&)> restore);
  // Something kept in the session changed outside what this controller watches.
  void changed();
  // One message in the window (and the log), for what could not be read or written.
  void showMessage(const QString& title, const QString& text);

  QUndoStack* undoStack() { return &undoStack_; }
  const QString& currentFile() const { return currentFile_; }
  bool writesLastSession() const { return ownsLastSession_; }
  // What the window shows as the session's state now.
  Session capture();
  // The message shown last (empty: none yet), for the window's tests.
  const QString& lastMessage() const { return lastMessage_; }

  // Used by the undo steps: the pattern set on the sequencer, heard from the next block.
  void applyPattern(const Pattern& pattern);

 private:
  Pattern capturePattern() const;
  void applyControls(const Session& session);
  void applyInstrument(platform::AudioUnit& unit, const Session& session);
  // Takes a session read from a file: everything, the instrument's state once it is ready.
  void take(const ReadResult& read, const QString& path);
  void patternEdited(KRSequencerController::PatternEdit edit);
  void check();
  bool writeTo(const QString& path);
  void updateTitle();

  QPointer<QWidget> window_;
  KRSequencerController* sequencer_;
  PianoViewController* keyboard_;
  Instrument instrument_;
  std::function<QVariantList()> saveLearnMap_;
  std::function<void(const QVariantList&)> restoreLearnMap_;

  QUndoStack undoStack_;
  Pattern lastPattern_;    // the pattern as the undo stack last saw it
  bool applying_ = false;  // our own changes are not edits

  // The session as last read or written, for what the instrument cannot tell (its state out of
  // process) and for what stays unchanged (the learn map with no part plugged in).
  Session known_;
  std::optional<Session> pendingInstrument_;  // waits for instrumentReady
  QString currentFile_;
  QByteArray savedText_;    // the current file's text as last read or written
  QByteArray lastWritten_;  // the last session's text as last written
  std::unique_ptr<QLockFile> lock_;
  bool ownsLastSession_ = false;
  bool failedLastSession_ = false;  // one message for a run of failed writes
  QTimer checkTimer_;
  QTimer soonTimer_;
  QString lastMessage_;
};

}  // namespace session
