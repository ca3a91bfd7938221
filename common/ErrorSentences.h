#pragma once
// What can go wrong between Parlova and the sound server, as codes the
// program decides on, and the sentences the user reads for them. The
// sentences are kept here, in one place, and shown as they stand.
#include <cmath>
#include <string>

namespace parlova {

enum class ErrorCode {
    failed,               // anything else; the sentence says what
    serverUnreachable,    // no sound server answers
    serverSilent,         // the server stopped answering during a live start
    microphoneRefused,    // the server (or a privacy setting) denied the microphone
    deviceGone,           // a device in use was unplugged or removed
    noDevices,            // no microphone or no output to use
    callNeedsVirtualMic,  // call mode without "Parlova Mic" installed
};

inline constexpr const char* kNoServerMessage =
    "Couldn't reach the sound server. Make sure PulseAudio or PipeWire is running, then try again.";
inline constexpr const char* kServerSilentMessage =
    "The sound server did not answer, so Live did not start. Make sure PulseAudio or PipeWire is running, "
    "then try again.";
// The window shows its own screen for this one rather than an error.
inline constexpr const char* kMicrophoneRefusedMessage = "Parlova isn't allowed to use the microphone.";
inline constexpr const char* kDisconnectedMessage =
    "An audio device in use was disconnected (for example, headphones unplugged), so Live was stopped. "
    "Press Talk Live to continue.";
inline constexpr const char* kNoDevicesMessage = "No microphone or output device is available.";
inline constexpr const char* kCallNeedsVirtualMicMessage =
    "Call mode needs the virtual mic. Press Install Virtual Mic in the Calls section, then try again.";

// A file whose sample rate can't be converted to the chain's.
inline std::string unconvertibleRateMessage(double sampleRate) {
    return "Parlova can't convert audio at a sample rate of " + std::to_string(std::llround(sampleRate)) + " Hz.";
}

// The sentence for a code; "failed" has none of its own.
constexpr const char* sentence(ErrorCode code) {
    switch (code) {
    case ErrorCode::serverUnreachable: return kNoServerMessage;
    case ErrorCode::serverSilent: return kServerSilentMessage;
    case ErrorCode::microphoneRefused: return kMicrophoneRefusedMessage;
    case ErrorCode::deviceGone: return kDisconnectedMessage;
    case ErrorCode::noDevices: return kNoDevicesMessage;
    case ErrorCode::callNeedsVirtualMic: return kCallNeedsVirtualMicMessage;
    case ErrorCode::failed: break;
    }
    return "Something went wrong.";
}

}  // namespace parlova
