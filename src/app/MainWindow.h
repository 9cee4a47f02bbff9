#pragma once

// The application's window: the root screen filling it; its size is remembered between launches
// (one size for each layout). A menu bar above it holds the instrument's "Presets" and "MIDI
// learn" menus. Ctrl+Q closes it, Ctrl+S saves the instrument's state. Bank files
// dropped on it are opened like those handed over by other programs.

#include <QWidget>
#include <functional>
#include <string>

class PGMidi;
class QMenuBar;
class ViewController;

namespace app {

class MainWindow : public QWidget {
 public:
  using OpenUrl = std::function<void(const std::string& url)>;

  MainWindow(const QString& instrumentName, bool phoneIdiom, PGMidi* midi, OpenUrl openUrl);

  ViewController* root() const { return root_; }

 protected:
  void resizeEvent(QResizeEvent* event) override;
  // Accepts a drag that carries at least one bank file ("file:" URLs ending in ".plb").
  void dragEnterEvent(QDragEnterEvent* event) override;
  // Opens the dropped bank files, in order; other URLs in the drop are left alone.
  void dropEvent(QDropEvent* event) override;
  void closeEvent(QCloseEvent* event) override;

 private:
  OpenUrl openUrl_;
  ViewController* root_ = nullptr;
  QMenuBar* menuBar_ = nullptr;
  bool phone_ = false;
};

}  // namespace app
