#pragma once
// "Start Parlova when I log in": an XDG autostart entry in the user's
// configuration folder that starts the app minimized.
#include <QString>

namespace parlova::ui {

// The entry's path: $XDG_CONFIG_HOME/autostart/<app ID>.desktop.
QString autostartEntryPath();
bool autostartEnabled();
// Writes or removes the entry; returns an error sentence, or empty on success.
QString setAutostartEnabled(bool on, const QString& executable);

}  // namespace parlova::ui
