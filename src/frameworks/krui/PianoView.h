#pragma once

// A playable piano keyboard: numKeysVisible white keys across the width with the black keys
// between them. Keys are played with the mouse, with touches (several at once), by dragging
// across keys (glissando) and from the computer keyboard. Pressing nearer the front (lower) edge
// of a key plays louder.
//
// Where the keyboard starts: 12 × (octave − 1) + pianoShift + 1, moved up to a white key when it
// lands on a black one. pianoShift is thus the semitone of the octave below after which the
// keyboard starts; with pianoShift 11 the keyboard starts on the C of its octave: octave 4 starts
// at note 48 (C4, middle C being note 60 = C5).
//
// Computer keyboard: Z S X D C V G B H N J M , L . ; / play from the lowest C shown (or the C just
// below the first key) upward; Q 2 W 3 E R 5 T 6 Y 7 U I 9 O 0 P play from the C an octave
// higher. Keys pressed this way play with velocity kComputerKeyVelocity.
//
// Hold: a released key keeps sounding until it is pressed again, hold is switched off, or panic.
// Lock: a drag does not move a held note to another key.

#include <QRectF>
#include <QWidget>
#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <vector>

#include "frameworks/krui/PianoViewDelegate.h"

class PianoView : public QWidget {
 public:
  static constexpr std::int32_t kDefaultPianoShift = 11;
  static constexpr std::int32_t kDefaultNumKeysVisible = 15;
  static constexpr std::int32_t kDefaultOctave = 4;
  // Bounds that keep the layout small: 75 white keys span all 128 MIDI notes.
  static constexpr std::int32_t kMaxNumKeysVisible = 75;
  static constexpr std::int32_t kMaxPianoShift = 127;
  static constexpr float kComputerKeyVelocity = 0.8f;
  // Velocity at the back edge of a key; it rises linearly to 1 at the front edge.
  static constexpr float kMinVelocity = 0.2f;

  struct Key {
    std::int32_t note;
    QRectF rect;
    bool black;
  };

  explicit PianoView(QWidget* parent = nullptr);

  void setDelegate(PianoViewDelegate* delegate) { delegate_ = delegate; }
  PianoViewDelegate* delegate() const { return delegate_.get(); }

  std::int32_t pianoShift() const { return pianoShift_; }
  // A shift beyond ±kMaxPianoShift is logged and brought into range.
  void setPianoShift(std::int32_t shift);
  std::int32_t numKeysVisible() const { return numKeysVisible_; }
  // A count outside 1..kMaxNumKeysVisible is logged and brought into range.
  void setNumKeysVisible(std::int32_t count);
  // Lays the keys out again for the current size and key count, and repaints.
  void refreshKeyboard();

  bool hold() const { return hold_; }
  // Switching hold off releases every key that only hold kept sounding.
  void setHold(bool hold);
  bool isLocked() const { return locked_; }
  void setIsLocked(bool locked);
  // Releases every sounding key, reporting each release once. Pointers still down play again
  // only when they move to another key.
  void panic();

  // The note of the leftmost white key.
  std::int32_t lowestKey() const;
  // The keys as laid out, white keys first, then black keys (drawn on top).
  const std::vector<Key>& keys() const { return keys_; }
  // The key under `point`, if any; black keys win where they overlap white keys.
  const Key* keyAt(QPointF point) const;
  // Velocity for a press at `point` on `key`: kMinVelocity at its back edge, 1 at its front edge.
  static float velocityAt(const Key& key, QPointF point);
  bool isSounding(std::int32_t note) const { return sounding_.count(note) != 0; }

 protected:
  friend class KRPianoView;  // a KRPianoView sets the octave of the keyboard that plays for it

  // The octave the keyboard starts in; KRPianoView makes it public and keeps it in range.
  std::int32_t baseOctave() const { return octave_; }
  void setBaseOctave(std::int32_t octave);

  bool event(QEvent* event) override;
  void resizeEvent(QResizeEvent* event) override;
  void paintEvent(QPaintEvent* event) override;
  void mousePressEvent(QMouseEvent* event) override;
  void mouseMoveEvent(QMouseEvent* event) override;
  void mouseReleaseEvent(QMouseEvent* event) override;
  void keyPressEvent(QKeyEvent* event) override;
  void keyReleaseEvent(QKeyEvent* event) override;
  void focusOutEvent(QFocusEvent* event) override;
  void hideEvent(QHideEvent* event) override;

 private:
  // One finger, the mouse, or one computer key; each plays at most one note at a time.
  using PointerId = std::int64_t;
  struct Pointer {
    std::optional<std::int32_t> key;  // the playable key under it, if any
    bool sounding = false;            // whether it holds that key's note
  };

  void layoutKeys();
  std::optional<std::int32_t> computerKeyNote(int qtKey) const;

  void pointerDown(PointerId id, std::optional<std::int32_t> note, float velocity);
  void pointerMove(PointerId id, std::optional<std::int32_t> note, float velocity);
  void pointerUp(PointerId id);
  void releaseAllPointers(bool (*which)(PointerId));
  void attach(Pointer& pointer, float velocity);
  void detach(Pointer& pointer);
  bool anyPointerOn(std::int32_t note) const;
  void reportPressed(std::int32_t note, float velocity);
  void reportReleased(std::int32_t note);

  platform::WeakRef<PianoViewDelegate> delegate_;
  std::int32_t pianoShift_ = kDefaultPianoShift;
  std::int32_t numKeysVisible_ = kDefaultNumKeysVisible;
  std::int32_t octave_ = kDefaultOctave;
  bool hold_ = false;
  bool locked_ = false;
  std::vector<Key> keys_;
  std::map<PointerId, Pointer> pointers_;  // pointers that are down
  std::set<std::int32_t> sounding_;        // reported pressed and not yet released
  std::set<std::int32_t> latched_;         // sounding only because hold is on; no pointer on them
};
