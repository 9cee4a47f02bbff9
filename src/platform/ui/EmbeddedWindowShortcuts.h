#pragma once

// Keeps a window's shortcuts (Ctrl+Q, Ctrl+S, ...) working while the keyboard focus is inside a
// foreign X11 window embedded in `host` (a plug-in's editor, possibly of another process). X11
// sends keys to the client of the focused window, so Qt would never see them: a passive grab of
// each shortcut's key combination on `host`'s native window makes the X server send exactly those
// keys to us instead, and they trigger their shortcut. Every other key still goes to the editor.
// Without X11 (offscreen, Wayland) it does nothing.

#include <QAbstractNativeEventFilter>
#include <QPointer>
#include <QShortcut>
#include <QWidget>
#include <vector>

namespace platform {

class EmbeddedWindowShortcuts : public QAbstractNativeEventFilter {
 public:
  explicit EmbeddedWindowShortcuts(QWidget* host);
  ~EmbeddedWindowShortcuts() override;
  EmbeddedWindowShortcuts(const EmbeddedWindowShortcuts&) = delete;
  EmbeddedWindowShortcuts& operator=(const EmbeddedWindowShortcuts&) = delete;

  // Grabs the keys of the shortcuts of `host`'s top-level window, as they are now.
  void grab();

  bool nativeEventFilter(const QByteArray& eventType, void* message, qintptr* result) override;

 private:
  struct Grab {
    unsigned keycode;
    unsigned modifiers;
    QPointer<QShortcut> shortcut;
  };
  void release();

  QWidget* host_;
  unsigned long window_ = 0;  // the X11 window the grabs are on
  std::vector<Grab> grabs_;
};

}  // namespace platform
