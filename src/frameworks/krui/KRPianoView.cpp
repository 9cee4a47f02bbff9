#include "frameworks/krui/KRPianoView.h"

#include <algorithm>

void KRPianoView::setOctave(std::int32_t octave) {
  setBaseOctave(std::clamp(octave, kMinOctave, kMaxOctave));
}
