#pragma once
// Finding a voice by name for the command line, and FIELD=VALUE settings
// checked against the editing ranges the voice page uses.
#include "voices/Voice.h"

#include <string>
#include <vector>

namespace parlova {
class VoiceStore;
}

namespace parlova::cli {

// "Natural" or a stored voice (ignoring case). Throws UsageError naming a
// near miss, or pointing at the list.
Voice findVoice(const VoiceStore& store, const std::string& name);
// The same over the user's own store.
Voice findVoice(const std::string& name);
// The stored voice only ("Natural" is not in the list). Throws UsageError.
Voice findStoredVoice(const VoiceStore& store, const std::string& name);

// Applies FIELD=VALUE to a float field (any letter case), refusing a value
// outside the field's range. `withText` also takes name=TEXT and emoji=TEXT.
// Throws UsageError with the sentence.
void applySetting(Voice& voice, const std::string& assignment, bool withText = false);
// findVoice, then every setting in order.
Voice voiceWithOverrides(const std::string& name, const std::vector<std::string>& settings);

// The names a setting may use, for help texts and completions.
std::vector<std::string> settingNames();

}  // namespace parlova::cli
