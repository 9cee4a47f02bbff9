#include "frameworks/krui/KRPianoView.h"

#include <algorithm>

void KRPianoView::setOctave(std::int32_t octave) {
  setBaseOctave(std::clamp(octave, kMinOctave, kMaxOctave));
  if (playing_) playing_->setBaseOctave(baseOctave());
}

void KRPianoView::setPlayingKeyboard(PianoView* keyboard) {
  playing_ = keyboard;
  setFocusPolicy(keyboard ? Qt::NoFocus : Qt::StrongFocus);
  if (playing_) playing_->setBaseOctave(baseOctave());
  update();
}

void KRPianoView::paintEvent(QPaintEvent* event) {
  if (!playing_) PianoView::paintEvent(event);
}
