#include "cli/VoiceLookup.h"

#include "cli/Command.h"
#include "cli/Suggest.h"
#include "voices/VoiceFieldRanges.h"
#include "voices/VoiceStore.h"

#include <cmath>
#include <cstdlib>

namespace parlova::cli {
namespace {

std::vector<std::string> namesOf(const VoiceStore& store) {
    std::vector<std::string> names{"Natural"};
    for (const auto& v : store.voices()) names.push_back(v.name.toStdString());
    return names;
}

[[noreturn]] void noSuchVoice(const VoiceStore& store, const std::string& name) {
    const std::string hint = didYouMean(name, namesOf(store));
    throw UsageError("There's no voice named \"" + name + "\"." +
                     (hint.empty() ? " Run 'parlova-cli voices' to see them." : hint));
}

}  // namespace

Voice findStoredVoice(const VoiceStore& store, const std::string& name) {
    if (auto voice = store.find(QString::fromStdString(name))) return *voice;
    if (QString::fromStdString(name).compare("Natural", Qt::CaseInsensitive) == 0)
        throw UsageError("\"Natural\" is your own voice, unchanged; it isn't in the list of voices.");
    noSuchVoice(store, name);
}

Voice findVoice(const VoiceStore& store, const std::string& name) {
    if (QString::fromStdString(name).compare("Natural", Qt::CaseInsensitive) == 0) return Voice::natural();
    if (auto voice = store.find(QString::fromStdString(name))) return *voice;
    noSuchVoice(store, name);
}

Voice findVoice(const std::string& name) {
    VoiceStore store;
    return findVoice(store, name);
}

std::vector<std::string> settingNames() {
    std::vector<std::string> names;
    for (const auto& f : voiceFieldRanges()) names.push_back(f.key);
    return names;
}

void applySetting(Voice& voice, const std::string& assignment, bool withText) {
    const auto equals = assignment.find('=');
    if (equals == std::string::npos || equals == 0)
        throw UsageError("The setting \"" + assignment + "\" needs the form FIELD=VALUE, e.g. pitch=-300.");
    const std::string key = assignment.substr(0, equals), text = assignment.substr(equals + 1);
    const QString qkey = QString::fromStdString(key);
    if (withText && (qkey.compare("name", Qt::CaseInsensitive) == 0 || qkey.compare("emoji", Qt::CaseInsensitive) == 0)) {
        const QString value = QString::fromStdString(text).trimmed();
        if (value.isEmpty()) throw UsageError("The " + qkey.toLower().toStdString() + " of a voice can't be empty.");
        (qkey.compare("name", Qt::CaseInsensitive) == 0 ? voice.name : voice.emoji) = value;
        return;
    }
    const VoiceFieldRange* field = findVoiceField(qkey);
    if (!field) {
        auto names = settingNames();
        if (withText) names.insert(names.end(), {"name", "emoji"});
        const std::string hint = didYouMean(key, names);
        throw UsageError("There's no voice setting named \"" + key + "\"." +
                         (hint.empty() ? " Run 'parlova-cli voices set --help' for the list." : hint));
    }
    char* end = nullptr;
    const double value = std::strtod(text.c_str(), &end);
    if (text.empty() || *end != '\0' || !std::isfinite(value))
        throw UsageError("The value \"" + text + "\" for " + field->key + " isn't a number.");
    const float stored = static_cast<float>(value);
    if (auto problem = checkVoiceFieldValue(*field, std::isfinite(stored) ? stored : static_cast<float>(HUGE_VAL)))
        throw UsageError(problem->toStdString());
    voice.*(field->member) = stored;
}

Voice voiceWithOverrides(const std::string& name, const std::vector<std::string>& settings) {
    Voice voice = findVoice(name);
    for (const auto& assignment : settings) applySetting(voice, assignment);
    return voice;
}

}  // namespace parlova::cli
