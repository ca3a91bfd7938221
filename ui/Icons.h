#pragma once
// Icons from the desktop's freedesktop icon theme, falling back to the icons
// Qt's own style bundles when the theme lacks a name.
#include <QIcon>
#include <QStyle>

namespace parlova::ui {

QIcon themedIcon(const char* freedesktopName, QStyle::StandardPixmap fallback);
// Parlova's own icon (a microphone in a speech bubble), painted so it needs
// no image plugin; `accent` colours the bubble (idle, live, call).
QIcon appIcon(const QColor& accent = QColor(0x5b, 0x4b, 0xd6));

}  // namespace parlova::ui
