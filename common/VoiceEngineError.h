#pragma once
// The one error type of the engine, the cloner and the installers: it carries a
// finished sentence for the user, shown as it is.
#include <stdexcept>
#include <string>

namespace parlova {

class VoiceEngineError : public std::runtime_error {
public:
    explicit VoiceEngineError(const std::string& message) : std::runtime_error(message) {}
    std::string errorDescription() const { return what(); }
};

// The sound server refused Parlova the microphone (the window shows its own
// screen for this rather than an error).
inline constexpr const char* kMicrophoneRefusedMessage = "Parlova isn't allowed to use the microphone.";

// "Couldn't <what> (error <status>)." for low-level status failures.
inline VoiceEngineError statusError(const std::string& what, long status) {
    return VoiceEngineError("Couldn't " + what + " (error " + std::to_string(status) + ").");
}

}  // namespace parlova
