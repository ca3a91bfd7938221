#pragma once
// What the control words act on, as the app wires it: an engine without a
// sound server, the voice list and the selection over settings in a
// temporary folder, and the commands over them.
#include "control/ControlCommands.h"
#include "control/VoiceSelection.h"
#include "engine/VoiceEngine.h"
#include "voices/VoiceStore.h"

#include <QTemporaryDir>

namespace parlova::testcontrol {

struct ControlRig {
    QTemporaryDir dir;
    QSettings settings{dir.filePath("settings.ini"), QSettings::IniFormat};
    BackendJobs jobs;
    VoiceEngine engine{&settings, nullptr, jobs};
    VoiceStore store{&settings};
    VoiceSelection selection{engine, store};
    ControlCommands commands{engine, selection};
};

}  // namespace parlova::testcontrol
