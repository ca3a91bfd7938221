// parlova-cli voices import: voices from a file written by "voices export"
// (or by hand). The whole file is checked before anything is stored, so a
// damaged file changes nothing and says why.
#include "cli/Command.h"
#include "cli/StdStreams.h"
#include "cli/VoiceNames.h"
#include "voices/VoiceFieldRanges.h"
#include "voices/VoiceStore.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <cstdio>

namespace parlova::cli {
namespace {

// One voice object, checked field by field; the reason names the entry.
Voice checkedVoice(const QJsonValue& value, int number, const std::string& source) {
    auto where = [&](const QJsonObject* o) {
        std::string w = "Voice " + std::to_string(number);
        if (o && o->value("name").isString()) w += " (\"" + o->value("name").toString().toStdString() + "\")";
        return w + " in " + source;
    };
    if (!value.isObject()) throw Failure("Nothing was imported: " + where(nullptr) + " isn't a JSON object.");
    QJsonObject o = value.toObject();
    for (const char* key : {"name", "emoji"})
        if (!o.value(key).isString() || o.value(key).toString().trimmed().isEmpty())
            throw Failure("Nothing was imported: " + where(&o) + " has no text \"" + key + "\".");
    for (const auto& field : voiceFieldRanges()) {
        const QJsonValue v = o.value(field.key);
        if (!v.isDouble())
            throw Failure("Nothing was imported: " + where(&o) + " has no number \"" + field.key + "\".");
        if (auto problem = checkVoiceFieldValue(field, static_cast<float>(v.toDouble())))
            throw Failure("Nothing was imported: " + where(&o) + ": " + problem->toStdString());
    }
    // Identity and starting-voice marks are never taken over.
    o["id"] = QUuid::createUuid().toString(QUuid::WithoutBraces);
    o.remove("presetKey");
    auto voice = Voice::fromJson(o);
    if (!voice) throw Failure("Nothing was imported: " + where(&o) + " isn't a voice Parlova can read.");
    return *voice;
}

int import(const Arguments& args) {
    const std::string path = args.operand(0);
    const std::string source = path == "-" ? "standard input" : "\"" + path + "\"";
    const QByteArray data = readWholeInput(path);
    QJsonParseError error{};
    const QJsonDocument doc = QJsonDocument::fromJson(data, &error);
    // A lone number or text is JSON too, just no voice.
    const bool scalar = error.error != QJsonParseError::NoError && QJsonDocument::fromJson("[" + data + "]").isArray();
    if (error.error != QJsonParseError::NoError && !scalar)
        throw Failure("Nothing was imported: " + source + " isn't valid JSON (" + error.errorString().toStdString() +
                      " at character " + std::to_string(error.offset) + ").");
    QJsonArray entries;
    if (doc.isObject()) entries.append(doc.object());
    else if (doc.isArray()) entries = doc.array();
    if (entries.isEmpty())
        throw Failure("Nothing was imported: " + source + " holds no voices (a voice object or a list of them).");

    std::vector<Voice> incoming;
    for (int i = 0; i < entries.size(); ++i) incoming.push_back(checkedVoice(entries[i], i + 1, source));

    VoiceStore store;
    std::vector<Voice> voices = store.voices();
    for (Voice& v : incoming) {
        // Unique against the list as it grows, so two imports of one name differ too.
        const QString wanted = v.name;
        v.name = uniqueVoiceName(voices, wanted);
        voices.push_back(v);
        if (!args.quiet() && v.name != wanted)
            std::fprintf(stderr, "Imported \"%s\" as \"%s\": a voice of that name exists.\n",
                         wanted.toUtf8().constData(), v.name.toUtf8().constData());
    }
    store.setVoices(std::move(voices));
    for (const Voice& v : incoming) std::printf("%s\n", v.name.toUtf8().constData());
    return kExitOk;
}

CommandRegistration importCommand({"voices import", "Add voices from a JSON file", {"FILE"},
                                   "Adds the voices in FILE ('-' reads standard input): one voice object or a list,\n"
                                   "as 'parlova-cli voices export' prints them, and prints their names. Imported\n"
                                   "voices get new identities and are your own voices: starting voices are never\n"
                                   "overwritten, and a name already in use gets a number. The whole file is checked\n"
                                   "first; if anything in it is wrong, nothing is imported.\n",
                                   {quietOption()}, "", import});

}  // namespace
}  // namespace parlova::cli
