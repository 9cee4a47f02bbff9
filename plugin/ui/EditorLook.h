#pragma once

// The host's colours, so the editor looks like the rest of the window.

#include <QColor>

namespace pelma::ui::look {

inline const QColor kBackgroundTop(43, 50, 57);     // the host's strip gradient, top
inline const QColor kBackgroundBottom(19, 23, 26);  // and bottom
inline const QColor kPanel(30, 35, 40);
inline const QColor kPanelBorder(0, 0, 0);
inline const QColor kTrack(54, 64, 73);     // slider track, knob ring
inline const QColor kAmber(255, 209, 117);  // values, lit buttons
inline const QColor kThumb(204, 204, 204);  // pointer, text
inline const QColor kDimText(150, 158, 165);
inline const QColor kMeterLow(120, 200, 120);
inline const QColor kMeterHigh(235, 90, 70);

}  // namespace pelma::ui::look
