#include "platform/ui/EmbeddedWindowShortcuts.h"

// Qt first: Xlib's macros (None, Bool, KeyPress) would break Qt's headers.
#include <QGuiApplication>

#include <X11/Xlib.h>
#include <X11/keysym.h>
#include <xcb/xcb.h>

namespace platform {
namespace {

Display* x11Display() {
  auto* x11 = qGuiApp ? qGuiApp->nativeInterface<QNativeInterface::QX11Application>() : nullptr;
  return x11 ? x11->display() : nullptr;
}

// The X keysym of a shortcut's key: letters, digits and the function keys, which is what window
// shortcuts use; 0 for anything else.
KeySym keysymOf(Qt::Key key) {
  if (key >= Qt::Key_A && key <= Qt::Key_Z) return XK_a + (key - Qt::Key_A);
  if (key >= Qt::Key_0 && key <= Qt::Key_9) return XK_0 + (key - Qt::Key_0);
  if (key >= Qt::Key_F1 && key <= Qt::Key_F12) return XK_F1 + (key - Qt::Key_F1);
  return 0;
}

unsigned x11Modifiers(Qt::KeyboardModifiers modifiers) {
  unsigned mask = 0;
  if (modifiers & Qt::ControlModifier) mask |= ControlMask;
  if (modifiers & Qt::ShiftModifier) mask |= ShiftMask;
  if (modifiers & Qt::AltModifier) mask |= Mod1Mask;
  return mask;
}

// Caps Lock and Num Lock must not stop a shortcut: each grab is made with and without them.
constexpr unsigned kLockMasks[] = {0, LockMask, Mod2Mask, LockMask | Mod2Mask};
constexpr unsigned kShortcutMasks = ControlMask | ShiftMask | Mod1Mask;

}  // namespace

EmbeddedWindowShortcuts::EmbeddedWindowShortcuts(QWidget* host) : host_(host) {}

EmbeddedWindowShortcuts::~EmbeddedWindowShortcuts() {
  release();
}

void EmbeddedWindowShortcuts::grab() {
  release();
  Display* display = x11Display();
  if (!display || !host_->testAttribute(Qt::WA_NativeWindow)) return;
  window_ = host_->winId();
  for (QShortcut* shortcut : host_->window()->findChildren<QShortcut*>()) {
    const QKeySequence sequence = shortcut->key();
    if (sequence.count() != 1) continue;
    const QKeyCombination combination = sequence[0];
    const KeySym keysym = keysymOf(combination.key());
    const KeyCode keycode = keysym ? XKeysymToKeycode(display, keysym) : 0;
    if (!keycode) continue;
    const unsigned modifiers = x11Modifiers(combination.keyboardModifiers());
    for (unsigned lock : kLockMasks)
      XGrabKey(display, keycode, modifiers | lock, window_, False, GrabModeAsync, GrabModeAsync);
    grabs_.push_back({keycode, modifiers, shortcut});
  }
  XFlush(display);
  if (!grabs_.empty()) qGuiApp->installNativeEventFilter(this);
}

void EmbeddedWindowShortcuts::release() {
  if (grabs_.empty()) return;
  qGuiApp->removeNativeEventFilter(this);
  if (Display* display = x11Display()) {
    for (const Grab& grab : grabs_) {
      for (unsigned lock : kLockMasks)
        XUngrabKey(display, grab.keycode, grab.modifiers | lock, window_);
    }
    XFlush(display);
  }
  grabs_.clear();
}

bool EmbeddedWindowShortcuts::nativeEventFilter(const QByteArray& eventType, void* message,
                                                qintptr*) {
  if (eventType != "xcb_generic_event_t") return false;
  const auto* event = static_cast<const xcb_generic_event_t*>(message);
  if ((event->response_type & 0x7f) != XCB_KEY_PRESS) return false;
  const auto* key = static_cast<const xcb_key_press_event_t*>(message);
  if (key->event != window_) return false;
  for (const Grab& grab : grabs_) {
    if (key->detail != grab.keycode || (key->state & kShortcutMasks) != grab.modifiers) continue;
    if (grab.shortcut && grab.shortcut->isEnabled()) emit grab.shortcut->activated();
    return true;  // ours: Qt must not also deliver it
  }
  return false;
}

}  // namespace platform
