#pragma once
// The second line of each sidebar row.
#include "voices/Voice.h"

#include <QString>

namespace parlova::ui {

// "Auto pitch → 108 Hz" or "+6.5 semitones" / "-2.5 semitones".
QString voiceSummary(const Voice& voice);
// "3 samples · 42 s", "1 sample · 8 s" or "No samples yet".
QString sampleLine(int sampleCount, double totalSeconds);

}  // namespace parlova::ui
