#pragma once
// Giving the real microphone back when an earlier run (a crash, a killed call
// mode) left the system microphone on the virtual mic "Parlova Mic". Every
// command runs the quiet repair first; "mic restore" also repairs a system
// microphone set to the virtual mic by hand.
#include <QString>

#include <optional>

namespace parlova::cli {

struct MicRepairOutcome {
    bool neededServer = false;  // something was to be checked on the sound server
    bool serverReached = false;
    bool restored = false;       // the system microphone was moved off the virtual mic
    QString microphone;          // the system microphone afterwards (display name)
};

// What the engine does at start: only when a saved microphone says an earlier
// call mode switched it. Touches the server only then.
MicRepairOutcome repairSavedSystemMic();

// The repair before a command runs; says on standard error what it did.
void repairSystemMicOnStart(bool quiet);

// The repair above, then, if the virtual mic still is the system microphone,
// the first real microphone becomes it. Refused (Failure) while a Parlova
// process is live: the system microphone is that process's.
MicRepairOutcome restoreSystemMic();

// The sentence about a repair, or nothing when nothing was done.
std::optional<QString> describe(const MicRepairOutcome& outcome);

}  // namespace parlova::cli
