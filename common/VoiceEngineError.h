#pragma once
// The one error type of the engine, the cloner and the installers: a code the
// program decides on, and a finished sentence for the user, shown as it is.
#include "common/ErrorSentences.h"

#include <stdexcept>
#include <string>

namespace parlova {

class VoiceEngineError : public std::runtime_error {
public:
    explicit VoiceEngineError(const std::string& message, ErrorCode code = ErrorCode::failed)
        : std::runtime_error(message), code_(code) {}
    // The code's own sentence.
    explicit VoiceEngineError(ErrorCode code) : VoiceEngineError(sentence(code), code) {}

    ErrorCode code() const { return code_; }
    std::string errorDescription() const { return what(); }

private:
    ErrorCode code_;
};

// "Couldn't <what> (error <status>)." for low-level status failures.
inline VoiceEngineError statusError(const std::string& what, long status) {
    return VoiceEngineError("Couldn't " + what + " (error " + std::to_string(status) + ").");
}

}  // namespace parlova
