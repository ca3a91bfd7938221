#pragma once
// The connection that carries the live audio streams (microphone capture,
// device output, the monitor output), apart from the enumeration and control
// connection. Its loop thread is the streams' I/O thread. One connection is
// shared by every stream alive at the same time, and made anew when the
// previous one broke.
#include "devices/pulse/PulseLoop.h"

#include <memory>
#include <string>

namespace parlova::pulse {

// The shared stream connection, or null with *error set when no server can be
// reached.
std::shared_ptr<PulseLoop> sharedStreamLoop(int* error);

// Waits, with the loop locked, until a just-connected stream is ready; false
// when it failed instead.
bool waitUntilReady(const PulseLoop& loop, pa_stream* stream);
// Corks (pauses) or uncorks a ready stream and waits for the server's answer.
// Takes the loop lock itself.
bool corkStream(const PulseLoop& loop, pa_stream* stream, bool paused);
// With the loop locked: detaches every callback, disconnects and releases the
// stream, and clears the pointer. No callback reaches its owner afterwards.
void releaseStream(pa_stream*& stream);
// The context's last error, or PA_ERR_BADSTATE when it recorded none.
int lastError(const PulseLoop& loop);

// The sentence shown when no sound server answers.
inline const std::string kNoServerMessage =
    "Couldn't reach the sound server. Make sure PulseAudio or PipeWire is running, then try again.";

}  // namespace parlova::pulse
