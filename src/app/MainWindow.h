#pragma once

// The application's window: the root screen filling it; its size is remembered between launches
// (one size for each layout). A menu bar above it holds the instrument's "Presets" and "MIDI
// learn" menus. Ctrl+Q closes it; Ctrl+O, Ctrl+S and Ctrl+Shift+S open and save sessions, Ctrl+Z
// and Ctrl+Shift+Z undo and redo pattern edits. Bank and session files dropped on it are opened
// like those handed over by other programs.

#include <QWidget>
#include <functional>
#include <memory>
#include <string>

#include "session/SessionController.h"

class PGMidi;
class QMenuBar;
class ViewController;

namespace app {

class MainWindow : public QWidget {
 public:
  using OpenUrl = std::function<void(const std::string& url)>;

  MainWindow(const QString& instrumentName, bool phoneIdiom, PGMidi* midi, OpenUrl openUrl);
  ~MainWindow() override;

  ViewController* root() const { return root_; }
  session::SessionController* sessions() const { return sessions_.get(); }
  // A session file's local path, or empty for another URL (a bank, a "pelma:" link).
  static QString sessionPath(const std::string& url);
  // Opens a session file as the window's session, anything else as a bank or link.
  void open(const std::string& url);

 protected:
  void resizeEvent(QResizeEvent* event) override;
  // Accepts a drag that carries at least one bank or session file ("file:" URLs ending in ".plb"
  // or ".pelmasession").
  void dragEnterEvent(QDragEnterEvent* event) override;
  // Opens the dropped bank and session files, in order; other URLs in the drop are left alone.
  void dropEvent(QDropEvent* event) override;
  void closeEvent(QCloseEvent* event) override;

 private:
  OpenUrl openUrl_;
  ViewController* root_ = nullptr;
  std::unique_ptr<session::SessionController> sessions_;
  QMenuBar* menuBar_ = nullptr;
  bool phone_ = false;
};

}  // namespace app
