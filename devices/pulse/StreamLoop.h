#pragma once
// The connection that carries the live audio streams (microphone capture,
// device output, the monitor output), apart from the enumeration and control
// connection, so a slow query never delays audio. Its loop thread is the
// audio thread and is given real-time scheduling when the connection is made.
// One connection is shared by every stream alive at the same time, and made
// anew when the previous one broke.
#include "devices/AudioBackend.h"
#include "devices/pulse/PulseLoop.h"

#include <memory>

namespace parlova::pulse {

// The shared stream connection, or null with *error set when no server can be
// reached. Waits on the server: job threads only.
std::shared_ptr<PulseLoop> sharedStreamLoop(int* error);

// The scheduling the current stream connection's thread was given.
RealtimeGrant streamLoopGrant();

}  // namespace parlova::pulse
