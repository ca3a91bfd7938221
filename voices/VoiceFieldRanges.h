#pragma once
// The editing range, label and unit of every float field of a voice: the one
// table the voice page's sliders and the command line's checks share.
#include "voices/Voice.h"

#include <QString>

#include <optional>
#include <vector>

namespace parlova {

struct VoiceFieldRange {
    const char* key;      // JSON key and command-line name, e.g. "tremoloDepth"
    const char* label;    // slider label, e.g. "Tremble depth"
    const char* group;    // section of the voice page, e.g. "Movement"
    const char* unit;     // shown after the value: "cents", "Hz", "dB", "%", "st" or ""
    float minimum;
    float maximum;
    float step;           // one keyboard step of the slider
    int decimals;         // digits shown after the point
    float Voice::*member;
    // Auto pitch: 0 is allowed outside the range and means "off".
    bool zeroMeansOff = false;
};

// Every float field in the voice page's order (grouped by section).
const std::vector<VoiceFieldRange>& voiceFieldRanges();

// The field whose key matches, ignoring case; nothing when none does.
const VoiceFieldRange* findVoiceField(const QString& key);

// Nothing when the value may be stored; otherwise a sentence naming the range
// and unit, e.g. "pitch must be between -1200 and 1200 cents (got 99999)."
std::optional<QString> checkVoiceFieldValue(const VoiceFieldRange& field, float value);

// The value as the page shows it beside its slider: "+650 cents", "3.5 st",
// "0.12", "108 Hz" (or "Off" for auto pitch at 0).
QString formatVoiceFieldValue(const VoiceFieldRange& field, float value);

}  // namespace parlova
