#pragma once

// The host's colours, in one place. Widgets paint with these and style sheets take them through
// css(); interface files leave these colours to the screens that load them.

#include <QColor>
#include <QString>

namespace platform::palette {

// Amber: lit buttons, values, sounding keys, check marks, the selected steps' outline.
inline const QColor kAccent = QColor::fromRgbF(1.0f, 0.82f, 0.459f, 1.0f);
inline const QColor kAccentPressed(255, 226, 168);
inline const QColor kText(232, 236, 240);           // titles
inline const QColor kSecondaryText(200, 206, 212);  // messages, control names
inline const QColor kControl(52, 60, 68);           // button and selection backgrounds
inline const QColor kBorder(62, 72, 81);

inline QString css(const QColor& colour) {
  return QStringLiteral("rgb(%1, %2, %3)").arg(colour.red()).arg(colour.green()).arg(colour.blue());
}

}  // namespace platform::palette
