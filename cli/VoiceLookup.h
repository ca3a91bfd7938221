#pragma once
// Finding a voice by name for the command line, with --set overrides.
#include "voices/Voice.h"

#include <optional>
#include <string>
#include <vector>

namespace parlova::cli {

// "Natural" or a stored voice (ignoring case). Prints the reason and gives
// nothing when there is no such voice.
std::optional<Voice> findVoice(const std::string& name);
// Applies FIELD=VALUE to a float field; prints the reason and returns false on a bad one.
bool applyOverride(Voice& voice, const std::string& assignment);
// findVoice, then every override in order; nothing when any step fails.
std::optional<Voice> voiceWithOverrides(const std::string& name, const std::vector<std::string>& overrides);

}  // namespace parlova::cli
