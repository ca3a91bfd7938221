#pragma once
// Renders the main window offscreen to a PNG, for the README and for checking
// the layout by eye without a display.
#include <QString>

namespace parlova {

// Returns the process exit status (0 when the file was written).
int takeScreenshot(const QString& file, const QString& selectName, const QString& page);

}  // namespace parlova
