#include "cli/VoiceLookup.h"

#include "voices/VoiceStore.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>

namespace parlova::cli {

std::optional<Voice> findVoice(const std::string& name) {
    if (QString::fromStdString(name).compare("Natural", Qt::CaseInsensitive) == 0) return Voice::natural();
    VoiceStore store;
    auto voice = store.find(QString::fromStdString(name));
    if (!voice)
        std::fprintf(stderr, "There's no voice named \"%s\". Run \"parlova-cli voices\" to see them.\n", name.c_str());
    return voice;
}

bool applyOverride(Voice& voice, const std::string& assignment) {
    const auto equals = assignment.find('=');
    if (equals == std::string::npos) {
        std::fprintf(stderr, "The setting \"%s\" needs the form FIELD=VALUE.\n", assignment.c_str());
        return false;
    }
    const std::string field = assignment.substr(0, equals), text = assignment.substr(equals + 1);
    char* end = nullptr;
    const float value = std::strtof(text.c_str(), &end);
    if (text.empty() || end == nullptr || *end != '\0' || !std::isfinite(value)) {
        std::fprintf(stderr, "The value \"%s\" for %s isn't a number.\n", text.c_str(), field.c_str());
        return false;
    }
    for (const auto& f : Voice::floatFields()) {
        if (field == f.key) {
            voice.*(f.member) = value;
            return true;
        }
    }
    std::fprintf(stderr, "There's no voice setting named \"%s\". Run \"parlova-cli render --help\" for the list.\n",
                 field.c_str());
    return false;
}

std::optional<Voice> voiceWithOverrides(const std::string& name, const std::vector<std::string>& overrides) {
    auto voice = findVoice(name);
    if (!voice) return std::nullopt;
    for (const auto& assignment : overrides)
        if (!applyOverride(*voice, assignment)) return std::nullopt;
    return voice;
}

}  // namespace parlova::cli
