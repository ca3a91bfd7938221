// parlova-cli board: the soundboard's sounds (clips and typed sentences),
// listed, added, renamed and removed in the same board file the window uses;
// a running Parlova notices the change and reloads it.
#include "board/BoardStore.h"
#include "cli/Command.h"
#include "cli/Suggest.h"
#include "cli/VoiceLookup.h"
#include "cloning/CloneLibrary.h"
#include "common/VoiceEngineError.h"
#include "voices/VoiceStore.h"

#include <QDir>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <cstdio>
#include <memory>

namespace parlova::cli {
namespace {

std::string text(const QString& s) { return s.toStdString(); }
QString q(const std::string& s) { return QString::fromStdString(s); }

// The board, with a word on a damaged file it found.
struct Board {
    BoardStore store;
    explicit Board(bool quiet) {
        if (!quiet && !store.keptAsidePath().isEmpty())
            std::fprintf(stderr, "The soundboard couldn't be read; the file was kept as %s.\n",
                         store.keptAsidePath().toUtf8().constData());
    }
    void checkSaved() const {
        if (!store.saveError().isEmpty()) throw Failure(text(store.saveError()));
    }
};

// The cloned voices, when there are any: a library is never made here just to look.
std::unique_ptr<CloneLibrary> existingLibrary() {
    if (!QFileInfo::exists(QDir(CloneLibrary::defaultDirectory()).filePath(CloneLibrary::kFileName))) return nullptr;
    return std::make_unique<CloneLibrary>();
}

BoardEntry findEntry(const BoardStore& store, const std::string& name) {
    if (auto entry = store.find(q(name))) return *entry;
    std::vector<std::string> names;
    for (const auto& e : store.entries()) names.push_back(text(e.name));
    const std::string hint = didYouMean(name, names);
    throw UsageError("There's no sound named \"" + name + "\" on the board." +
                     (hint.empty() ? names.empty() ? " The board is empty." : " Run 'parlova-cli board list' to see them."
                                   : hint));
}

QUuid findClone(const std::string& name) {
    const auto library = existingLibrary();
    if (library)
        if (auto voice = library->find(q(name))) return voice->id;
    std::vector<std::string> names;
    if (library)
        for (const auto& v : library->voices()) names.push_back(text(v.name));
    const std::string hint = didYouMean(name, names);
    throw UsageError("There's no cloned voice named \"" + name + "\"." +
                     (hint.empty() ? " Run 'parlova-cli clone list' to see them." : hint));
}

// A name given with --name or as NEW: trimmed, not empty, not another sound's.
QString checkedName(const BoardStore& store, const std::string& given, const QUuid& except = {}) {
    const QString name = q(given).trimmed();
    if (name.isEmpty()) throw UsageError("The name of a sound can't be empty.");
    if (auto other = store.find(name); other && other->id != except)
        throw Failure("There's already a sound named \"" + text(other->name) + "\" on the board; choose another name.");
    return name;
}

// Who says a typed sentence, by name ("" for the selected voice).
QString speakerName(const BoardEntry& e, const VoiceStore& voices, const CloneLibrary* library) {
    if (!e.cloneID.isNull()) {
        const auto clone = library ? library->voice(e.cloneID) : std::nullopt;
        return clone ? clone->name + " (cloned)" : QStringLiteral("a cloned voice that was deleted");
    }
    if (e.voiceID.isNull()) return {};
    for (const Voice& v : voices.voices())
        if (v.id == e.voiceID) return v.name;
    return QStringLiteral("a voice that was deleted");
}

int list(const Arguments& args) {
    if (args.has("--json") && args.has("--names")) throw UsageError("Use either --json or --names, not both.");
    Board board(args.quiet());
    const VoiceStore voices;
    const auto library = existingLibrary();
    const auto& entries = board.store.entries();
    if (args.has("--json")) {
        QJsonArray list;
        for (const BoardEntry& e : entries) {
            const bool clip = e.kind == BoardEntry::Kind::clip;
            QJsonObject o{{"name", e.name}, {"kind", clip ? "clip" : "speech"}, {"key", e.key}, {"levelDb", e.levelDb},
                          {"duckDb", e.duckDb}};
            if (clip) {
                o.insert("seconds", e.clipSeconds);
                o.insert("inMyVoice", e.inMyVoice);
            } else {
                o.insert("text", e.text);
                o.insert("voice", speakerName(e, voices, library.get()));
            }
            list.append(o);
        }
        std::printf("%s\n", QJsonDocument(QJsonObject{{"sounds", list}}).toJson(QJsonDocument::Compact).constData());
        return kExitOk;
    }
    for (const BoardEntry& e : entries) {
        if (args.has("--names")) {
            std::printf("%s\n", e.name.toUtf8().constData());
            continue;
        }
        QString what;
        if (e.kind == BoardEntry::Kind::clip) {
            what = QString("clip    %1 s").arg(e.clipSeconds, 0, 'f', 1);
        } else {
            const QString who = speakerName(e, voices, library.get());
            what = QString("speech  \u201c%1\u201d%2").arg(e.text, who.isEmpty() ? QString() : " in " + who);
        }
        std::printf("%-3s %-24s %s\n", e.key.isEmpty() ? "-" : e.key.toUtf8().constData(), e.name.toUtf8().constData(),
                    what.toUtf8().constData());
    }
    if (entries.isEmpty() && !args.quiet())
        std::fprintf(stderr, "The board is empty; 'parlova-cli board add' adds a clip or a sentence.\n");
    return kExitOk;
}

int add(const Arguments& args) {
    const bool typed = args.has("--text");
    if (typed == !args.operands().empty())
        throw UsageError(typed ? "Give either a FILE or --text TEXT, not both."
                               : "Give the FILE of a clip, or --text TEXT for a sentence.");
    if (!typed && (args.has("--voice") || args.has("--clone")))
        throw UsageError("--voice and --clone choose who says a sentence; a clip plays as it is.");
    if (args.has("--voice") && args.has("--clone"))
        throw UsageError("Choose one voice: --voice NAME or --clone NAME, not both.");
    if (typed && q(args.value("--text")).trimmed().isEmpty()) throw UsageError("--text needs something to say.");
    Board board(args.quiet());
    const QString name = args.has("--name") ? checkedName(board.store, args.value("--name")) : QString();
    BoardEntry entry;
    if (typed) {
        QUuid voiceID, cloneID;
        if (args.has("--voice")) {
            VoiceStore voices;
            voiceID = findStoredVoice(voices, args.value("--voice")).id;
            // The starting voices keep their ids only once the list is saved;
            // until then each process makes new ones, and the sentence would
            // name a voice no other process knows.
            if (!QSettings().contains(VoiceStore::kSettingsKey)) voices.setVoices(voices.voices());
        }
        if (args.has("--clone")) cloneID = findClone(args.value("--clone"));
        entry = board.store.addSpeech(q(args.value("--text")), voiceID, cloneID, name);
    } else {
        try {
            entry = board.store.addClip(q(args.operand(0)), name);
        } catch (const VoiceEngineError& error) {
            throw Failure(error.errorDescription() + " The board is unchanged.");
        }
    }
    board.checkSaved();
    if (!args.quiet())
        std::fprintf(stderr, "Added \"%s\"%s.\n", entry.name.toUtf8().constData(),
                     entry.key.isEmpty() ? "" : (" on the key " + text(entry.key)).c_str());
    std::printf("%s\n", entry.name.toUtf8().constData());
    return kExitOk;
}

int remove(const Arguments& args) {
    Board board(args.quiet());
    const BoardEntry entry = findEntry(board.store, args.operand(0));
    board.store.remove(entry.id);
    board.checkSaved();
    if (!args.quiet()) std::fprintf(stderr, "Removed \"%s\" from the board.\n", entry.name.toUtf8().constData());
    return kExitOk;
}

int rename(const Arguments& args) {
    Board board(args.quiet());
    const BoardEntry entry = findEntry(board.store, args.operand(0));
    const QString name = checkedName(board.store, args.operand(1), entry.id);
    board.store.rename(entry.id, name);
    board.checkSaved();
    if (!args.quiet())
        std::fprintf(stderr, "Renamed \"%s\" to \"%s\".\n", entry.name.toUtf8().constData(), name.toUtf8().constData());
    return kExitOk;
}

const std::string kEntry = "ENTRY is a sound's name on the board, matched ignoring letter case.\n";
const std::vector<Option> kListOptions{jsonOption("the list"),
                                       {"--names", "", "print only the names, one per line"},
                                       quietOption()};

CommandRegistration boardCommand({"board", "List, add, rename and remove the soundboard's sounds", {},
                                  "Lists the soundboard's sounds in order: clips and typed sentences that\n"
                                  "'parlova-cli control board play' (or the window) plays into the call.\n",
                                  kListOptions, "", list});
CommandRegistration listAction({"board list", "List the board's sounds (as 'parlova-cli board' does)", {},
                                "Lists the board's sounds in order: the key each plays on, its name, and the\n"
                                "clip's length or the sentence with the voice that says it.\n",
                                kListOptions, "", list});
CommandRegistration addAction(
    {"board add", "Add a clip or a typed sentence to the board", {"[FILE]"},
     "Adds the audio file FILE as a clip (a copy is kept with the board, so the file\n"
     "may move afterwards), or with --text a sentence said when it plays: by a cloned\n"
     "voice with --clone, else by espeak-ng through the effect voice --voice (or the\n"
     "voice selected then). A new sound gets the first free key of 1 to 9. Prints its name.\n",
     {{"--text", "TEXT", "the sentence to say, instead of a FILE"},
      {"--voice", "NAME", "with --text: the effect voice that says it"},
      {"--clone", "NAME", "with --text: the cloned voice that says it"},
      {"--name", "NAME", "the sound's name (default: the file's name or the sentence's start)"},
      quietOption()},
     "Examples:\n"
     "  parlova-cli board add applause.ogg --name Applause\n"
     "  parlova-cli board add --text \"Sorry, I lost you for a moment.\" --clone \"My Voice\"\n",
     add});
CommandRegistration removeAction({"board remove", "Remove a sound and its clip from the board", {"ENTRY"},
                                  "Removes the sound ENTRY from the board, and its copy of the clip.\n",
                                  {quietOption()}, kEntry, remove});
CommandRegistration renameAction({"board rename", "Rename a sound of the board", {"ENTRY", "NEW"},
                                  "Renames the sound ENTRY to NEW.\n", {quietOption()}, kEntry, rename});

}  // namespace
}  // namespace parlova::cli
