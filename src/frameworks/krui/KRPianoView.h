#pragma once

// The keyboard with its octave: a PianoView whose octave the keyboard screen shifts with its
// octave buttons. Octaves 0 to 7 are accepted, so that even the widest keyboard (22 white keys,
// three octaves and the closing C) stays within MIDI notes 0 to 127; a value outside is brought
// to the nearest end, and octave() reads back what was kept. Starts at octave 4 (notes 48 to 72
// with 15 keys, middle C in the middle).
//
// A screen may give it a playing keyboard (setPlayingKeyboard): a PianoView laid over it whose
// octave follows this view's, so that the octave buttons move the notes that are played. While it
// has one, this view draws nothing and takes no keyboard focus of its own.

#include <QPointer>
#include <cstdint>

#include "frameworks/krui/PianoView.h"

class KRPianoView : public PianoView {
 public:
  static constexpr std::int32_t kMinOctave = 0;
  static constexpr std::int32_t kMaxOctave = 7;

  using PianoView::PianoView;

  std::int32_t octave() const { return baseOctave(); }
  void setOctave(std::int32_t octave);

  // `keyboard` takes this view's octave now and whenever it changes (null: none).
  void setPlayingKeyboard(PianoView* keyboard);
  PianoView* playingKeyboard() const { return playing_; }

 protected:
  void paintEvent(QPaintEvent* event) override;

 private:
  QPointer<PianoView> playing_;
};
