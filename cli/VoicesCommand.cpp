// parlova-cli voices: the stored voices, listed, copied, edited, reset,
// deleted and exported through the same store the window uses.
#include "cli/Command.h"
#include "cli/VoiceLookup.h"
#include "cli/VoiceNames.h"
#include "voices/VoiceFieldRanges.h"
#include "voices/VoiceStore.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <algorithm>
#include <cstdio>

namespace parlova::cli {
namespace {

std::string text(const QString& s) { return s.toStdString(); }

QJsonObject listedJson(const Voice& v) {
    QJsonObject o = QJsonDocument::fromJson(v.toJson()).object();
    o["starting"] = v.presetKey.has_value();
    o["autoPitch"] = v.targetPitch > 0;
    return o;
}

// "pitch +650 cents", or auto pitch with the fixed shift it replaces.
std::string pitchSummary(const Voice& v) {
    const VoiceFieldRange& pitch = *findVoiceField("pitch");
    if (v.targetPitch <= 0) return "pitch " + text(formatVoiceFieldValue(pitch, v.pitch));
    std::string s = "auto pitch " + text(formatVoiceFieldValue(*findVoiceField("targetPitch"), v.targetPitch));
    if (v.pitch != 0) s += " (pitch " + text(formatVoiceFieldValue(pitch, v.pitch)) + " unused while auto pitch is on)";
    return s;
}

int list(const Arguments& args) {
    if (args.has("--json") && args.has("--names")) throw UsageError("Use either --json or --names, not both.");
    VoiceStore store;
    if (args.has("--json")) {
        QJsonArray voices;
        for (const Voice& v : store.voices()) voices.append(listedJson(v));
        std::printf("%s\n", QJsonDocument(QJsonObject{{"voices", voices}}).toJson(QJsonDocument::Compact).constData());
        return kExitOk;
    }
    for (const Voice& v : store.voices()) {
        if (args.has("--names")) {
            std::printf("%s\n", v.name.toUtf8().constData());
            continue;
        }
        std::printf("%s %-22s %s, formant %s%s\n", v.emoji.toUtf8().constData(), v.name.toUtf8().constData(),
                    pitchSummary(v).c_str(), text(formatVoiceFieldValue(*findVoiceField("formant"), v.formant)).c_str(),
                    v.presetKey ? "  (starting voice)" : "");
    }
    return kExitOk;
}

int show(const Arguments& args) {
    VoiceStore store;
    const Voice v = findVoice(store, args.operand(0));
    std::printf("%s %s%s\n", v.emoji.toUtf8().constData(), v.name.toUtf8().constData(),
                v.presetKey ? " (starting voice)" : "");
    std::string group;
    for (const auto& f : voiceFieldRanges()) {
        if (group != f.group) std::printf("%s:\n", (group = f.group).c_str());
        std::string note;
        if (f.member == &Voice::pitch && v.targetPitch > 0) note = "  unused while auto pitch is on";
        std::printf("  %-18s %-13s %s%s\n", f.label, text(formatVoiceFieldValue(f, v.*(f.member))).c_str(), f.key,
                    note.c_str());
    }
    return kExitOk;
}

void replace(VoiceStore& store, const Voice& edited) {
    std::vector<Voice> voices = store.voices();
    std::replace_if(voices.begin(), voices.end(), [&](const Voice& v) { return v.id == edited.id; }, edited);
    store.setVoices(std::move(voices));
}

int copy(const Arguments& args) {
    VoiceStore store;
    const Voice source = findVoice(store, args.operand(0));
    QString name = QString::fromStdString(args.value("--name")).trimmed();
    if (args.has("--name")) {
        if (name.isEmpty()) throw UsageError("The name of a voice can't be empty.");
        if (store.find(name)) throw Failure("There's already a voice named \"" + text(name) + "\"; choose another name.");
    }
    Voice copy = store.duplicate(source);
    const QString wanted = name.isEmpty() ? uniqueVoiceName(store.voices(), copy.name, copy.id) : name;
    if (wanted != copy.name) {
        copy.name = wanted;
        replace(store, copy);
    }
    std::printf("%s\n", copy.name.toUtf8().constData());
    return kExitOk;
}

int set(const Arguments& args) {
    VoiceStore store;
    Voice voice = findStoredVoice(store, args.operand(0));
    const auto settings = std::vector<std::string>(args.operands().begin() + 1, args.operands().end());
    for (const auto& s : settings) applySetting(voice, s, true);  // all checked before anything is saved
    if (auto other = store.find(voice.name); other && other->id != voice.id)
        throw Failure("There's already a voice named \"" + text(voice.name) + "\"; choose another name.");
    replace(store, voice);
    if (!args.quiet()) std::fprintf(stderr, "Saved \"%s\".\n", voice.name.toUtf8().constData());
    return kExitOk;
}

int reset(const Arguments& args) {
    VoiceStore store;
    const Voice voice = findStoredVoice(store, args.operand(0));
    if (!voice.presetKey)
        throw Failure("\"" + text(voice.name) + "\" is one of your own voices; only starting voices can be reset.");
    store.reset(voice);
    if (!args.quiet())
        std::fprintf(stderr, "\"%s\" has its starting settings again.\n",
                     Voice::factory(*voice.presetKey)->name.toUtf8().constData());
    return kExitOk;
}

int remove(const Arguments& args) {
    VoiceStore store;
    const Voice voice = findStoredVoice(store, args.operand(0));
    if (voice.presetKey)
        throw Failure("\"" + text(voice.name) + "\" is a starting voice and can't be deleted; 'parlova-cli voices reset \"" +
                      text(voice.name) + "\"' brings back its settings.");
    store.remove(voice);
    if (!args.quiet()) std::fprintf(stderr, "Deleted \"%s\".\n", voice.name.toUtf8().constData());
    return kExitOk;
}

int exportVoices(const Arguments& args) {
    VoiceStore store;
    if (args.operands().empty()) {
        std::printf("%s\n", encodeVoices(store.voices()).constData());
        return kExitOk;
    }
    std::printf("%s\n", findStoredVoice(store, args.operand(0)).toJson().constData());
    return kExitOk;
}

std::string fieldList() {
    std::string s = "Fields (any letter case) and the ranges they take:\n";
    for (const auto& f : voiceFieldRanges()) {
        std::string range = QString("%1 to %2").arg(f.minimum).arg(f.maximum).toStdString();
        if (*f.unit) range += std::string(" ") + f.unit;
        if (f.zeroMeansOff) range += ", or 0 for off";
        s += "  " + std::string(f.key) + std::string(16 - std::string(f.key).size(), ' ') + range + "  (" + f.label + ")\n";
    }
    return s;
}

const std::string kName = "NAME is matched ignoring letter case; quote names with spaces.\n";

CommandRegistration listCommand({"voices", "List, copy, edit, reset, delete, export and import voices", {},
                                 "Lists the stored voices in display order (the same list as the window).\n",
                                 {jsonOption("the list"), {"--names", "", "print only the names, one per line"}},
                                 "", list});
CommandRegistration listAction({"voices list", "List the voices (as 'parlova-cli voices' does)", {},
                                "Lists the stored voices in display order (the same list as the window).\n",
                                {jsonOption("the list"), {"--names", "", "print only the names, one per line"}},
                                "", list});
CommandRegistration showCommand({"voices show", "Show every setting of a voice", {"NAME"},
                                 "Shows every setting of the voice NAME with its label and field name.\n", {},
                                 kName, show});
CommandRegistration copyCommand({"voices copy", "Make an editable copy of a voice", {"NAME"},
                                 "Makes an editable copy of the voice NAME (or of \"Natural\"), placed right after\n"
                                 "it, and prints the copy's name.\n",
                                 {{"--name", "NEW", "name the copy NEW (default: NAME Copy)"}}, kName, copy});
CommandRegistration setCommand({"voices set", "Change settings of a voice", {"NAME", "FIELD=VALUE..."},
                                "Changes settings of the stored voice NAME and saves them. Every value is checked\n"
                                "first: one out of its range changes nothing. name=TEXT and emoji=TEXT rename it.\n",
                                {quietOption()}, kName + "\n" + fieldList() + "\nExample: parlova-cli voices set \"My Voice\" pitch=-300 formant=-1.5\n",
                                set});
CommandRegistration resetCommand({"voices reset", "Bring a starting voice back to its settings", {"NAME"},
                                  "Brings the starting voice NAME back to its starting name and settings.\n",
                                  {quietOption()}, kName, reset});
CommandRegistration deleteCommand({"voices delete", "Delete one of your own voices", {"NAME"},
                                   "Deletes the voice NAME. Starting voices can't be deleted, only reset.\n",
                                   {quietOption()}, kName, remove});
CommandRegistration exportCommand({"voices export", "Print voices as JSON", {"[NAME]"},
                                   "Prints the voice NAME, or every voice, as JSON in the form the settings keep\n"
                                   "(one object, or a list). 'parlova-cli voices import' reads it back.\n",
                                   {}, "Example: parlova-cli voices export \"My Voice\" > my-voice.json\n",
                                   exportVoices});

}  // namespace
}  // namespace parlova::cli
