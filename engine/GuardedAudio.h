#pragma once
// Runs a graph operation and turns anything it raises into a VoiceEngineError,
// so callers report one error type in their own words.
#include "common/VoiceEngineError.h"

#include <exception>
#include <string>
#include <utility>

namespace parlova {

inline constexpr const char* kEngineStoppedMessage = "The audio engine stopped unexpectedly.";

template <class Body>
auto guardedAudio(Body&& body) -> decltype(body()) {
    try {
        return std::forward<Body>(body)();
    } catch (const VoiceEngineError&) {
        throw;  // the body's own error, unchanged
    } catch (const std::exception& error) {
        std::string message = error.what();
        if (message.empty()) message = kEngineStoppedMessage;
        else if (message.back() != '.') message += '.';
        throw VoiceEngineError(message);
    } catch (...) {
        throw VoiceEngineError(kEngineStoppedMessage);
    }
}

}  // namespace parlova
