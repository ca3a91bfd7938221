#pragma once
// Real-time scheduling for an audio thread, the way desktop audio clients ask
// for it: through rtkit on the system bus first (it grants a bounded
// real-time priority to unprivileged users), else directly with
// sched_setscheduler where the process may, else not at all. Blocking (a bus
// call): run it off the main thread.
#include "devices/AudioBackend.h"

#include <sys/types.h>

namespace parlova::pulse {

RealtimeGrant makeRealtime(pid_t threadId);

}  // namespace parlova::pulse
