#include "control/ControlCommands.h"

#include "board/BoardStore.h"
#include "board/Soundboard.h"
#include "engine/VoiceEngine.h"
#include "control/VoiceSelection.h"

#include <QJsonDocument>
#include <QRegularExpression>

namespace parlova {

namespace {

ControlReply done(const QString& message) { return {true, message, {}}; }
ControlReply refused(const QString& message) { return {false, message, {}}; }

QString quoted(const QString& text) { return QStringLiteral("\u201c%1\u201d").arg(text); }

constexpr const char* kCommandList = "ptt, bypass, voice, live, board, say or status";

// The line after its first `count` words, its own spacing kept.
QString afterWords(const QString& line, int count) {
    static const QRegularExpression word(QStringLiteral("^\\s*\\S+\\s*"));
    QString rest = line;
    for (int i = 0; i < count; ++i) rest = rest.mid(word.match(rest).capturedLength());
    return rest.trimmed();
}

// A typed sentence as a reply quotes it: its start when it is long.
QString shortened(const QString& text) {
    constexpr qsizetype kLongest = 40;
    const QString simple = text.simplified();
    return simple.size() <= kLongest ? simple : simple.left(kLongest - 1).trimmed() + QStringLiteral("\u2026");
}

}  // namespace

QByteArray ControlReply::toLine() const {
    QJsonObject object{{"ok", ok}, {"message", message}};
    if (!status.isEmpty()) object.insert("status", status);
    return QJsonDocument(object).toJson(QJsonDocument::Compact) + '\n';
}

ControlReply ControlReply::fromLine(const QByteArray& line) {
    const QJsonDocument document = QJsonDocument::fromJson(line.trimmed());
    if (!document.isObject() || !document.object().value("message").isString())
        return refused(QStringLiteral("Parlova sent an answer that could not be read."));
    const QJsonObject object = document.object();
    return {object.value("ok").toBool(), object.value("message").toString(), object.value("status").toObject()};
}

ControlReply ControlCommands::runLine(const QString& line) {
    const QString trimmed = line.trimmed();
    QStringList words = trimmed.split(QLatin1Char(' '), Qt::SkipEmptyParts);
    // "open {...}": the options are the rest of the line.
    if (!words.isEmpty() && words.front() == QLatin1String("open"))
        return open(trimmed.mid(words.front().size()).trimmed());
    // "voice NAME": the name is the rest of the line, spaces and all.
    if (words.size() > 2 && words.front() == QLatin1String("voice"))
        words = {words.front(), trimmed.mid(trimmed.indexOf(QLatin1Char(' '))).trimmed()};
    // "board play NAME" likewise, and "say ...": the words after "say" as they came.
    if (words.size() > 3 && words.front() == QLatin1String("board"))
        words = {words[0], words[1], afterWords(trimmed, 2)};
    if (words.size() > 1 && words.front() == QLatin1String("say")) words = {words.front(), afterWords(trimmed, 1)};
    return run(words);
}

ControlReply ControlCommands::run(const QStringList& words) {
    if (words.isEmpty()) return refused(QStringLiteral("No command was given; use %1.").arg(kCommandList));
    const QString command = words.front().toLower();
    const QString argument = words.size() > 1 ? words.at(1) : QString();
    if (command == QLatin1String("status")) {
        if (words.size() > 2 || (!argument.isEmpty() && argument != QLatin1String("--json")))
            return refused(QStringLiteral("\u201cstatus\u201d takes nothing or --json."));
        ControlReply reply = done({});
        reply.status = status();
        reply.message = statusText(reply.status);
        return reply;
    }
    if (command == QLatin1String("board")) return board(words.mid(1));
    if (command == QLatin1String("say")) return say(words.mid(1).join(QLatin1Char(' ')));
    using Handler = ControlReply (ControlCommands::*)(const QString&);
    struct Entry {
        const char* name;
        Handler handler;
        const char* needs;
    };
    static const Entry table[] = {
        {"ptt", &ControlCommands::ptt, "press, release or toggle"},
        {"bypass", &ControlCommands::bypass, "on, off or toggle"},
        {"voice", &ControlCommands::voice, "next, prev or a voice's name"},
        {"live", &ControlCommands::live, "start, stop or toggle"},
    };
    for (const Entry& entry : table) {
        if (command != QLatin1String(entry.name)) continue;
        if (words.size() != 2 || argument.isEmpty())
            return refused(QStringLiteral("%1 needs %2.").arg(quoted(command), QLatin1String(entry.needs)));
        ControlReply reply = (this->*entry.handler)(argument);
        if (!reply.ok && reply.message.isEmpty())
            reply.message = QStringLiteral("%1 needs %2, not %3.")
                                .arg(quoted(command), QLatin1String(entry.needs), quoted(argument));
        return reply;
    }
    return refused(QStringLiteral("Unknown command %1; use %2.").arg(quoted(words.front()), kCommandList));
}

ControlReply ControlCommands::ptt(const QString& action) {
    TalkControl& talk = engine_.talk();
    if (action == QLatin1String("press")) talk.setKeyHeld(true);
    else if (action == QLatin1String("release")) talk.setKeyHeld(false);
    else if (action == QLatin1String("toggle")) talk.toggleKey();
    else return refused({});
    if (talk.mode() == TalkMode::always)
        return done(QStringLiteral("Talking (the talk mode is \u201calways\u201d, so the key changes nothing)."));
    return done(talk.status() + QLatin1Char('.'));
}

ControlReply ControlCommands::bypass(const QString& action) {
    if (action == QLatin1String("on")) engine_.setBypass(true);
    else if (action == QLatin1String("off")) engine_.setBypass(false);
    else if (action == QLatin1String("toggle")) engine_.setBypass(!engine_.bypass());
    else return refused({});
    return done(engine_.bypass() ? QStringLiteral("Natural voice is on.") : QStringLiteral("Natural voice is off."));
}

ControlReply ControlCommands::voice(const QString& which) {
    const bool next = which == QLatin1String("next"), prev = which == QLatin1String("prev");
    const bool moved = next || prev ? selection_.step(next ? 1 : -1) : selection_.selectNamed(which);
    if (!moved)
        return refused(next || prev ? QStringLiteral("There are no voices to move through.")
                                    : QStringLiteral("There is no voice named %1.").arg(quoted(which)));
    return done(QStringLiteral("Voice: %1.").arg(selection_.name()));
}

ControlReply ControlCommands::live(const QString& action) {
    bool start = action == QLatin1String("start");
    if (action == QLatin1String("toggle")) start = !engine_.isLive();
    else if (!start && action != QLatin1String("stop")) return refused({});
    if (engine_.isLive() != start) engine_.toggleLive();
    return done(start ? QStringLiteral("Live is on.") : QStringLiteral("Live is off."));
}

ControlReply ControlCommands::open(const QString& options) {
    if (!openHandler_) return refused(QStringLiteral("Only the Parlova window takes \u201copen\u201d."));
    const QJsonDocument document = QJsonDocument::fromJson(options.toUtf8());
    if (!options.isEmpty() && !document.isObject())
        return refused(QStringLiteral("\u201copen\u201d takes its options as one JSON object."));
    return openHandler_(document.object());
}

std::optional<SayRequest> SayRequest::parse(const QString& words, QString* error) {
    static const QRegularExpression option(QStringLiteral("(?:^|\\s)--(voice|clone)(?=\\s|$)"));
    const auto fail = [error](const QString& sentence) {
        if (error) *error = sentence;
        return std::nullopt;
    };
    SayRequest request;
    const QRegularExpressionMatch match = option.match(words);
    request.text = (match.hasMatch() ? words.left(match.capturedStart()) : words).trimmed();
    if (match.hasMatch()) {
        const QString name = words.mid(match.capturedEnd()).trimmed();
        if (option.match(name).hasMatch())
            return fail(QStringLiteral("Choose one voice to say it: --voice NAME or --clone NAME, not both."));
        if (name.isEmpty())
            return fail(QStringLiteral("--%1 needs the name of a voice.").arg(match.captured(1)));
        (match.captured(1) == QLatin1String("voice") ? request.voice : request.clone) = name;
    }
    if (request.text.isEmpty())
        return fail(QStringLiteral("\u201csay\u201d needs the text to say, then --voice NAME or --clone NAME if you "
                                   "want another voice than the selected one."));
    return request;
}

ControlReply ControlCommands::board(const QStringList& words) {
    if (!boardStore_ || !board_) return refused(QStringLiteral("This Parlova has no soundboard."));
    const QString action = words.value(0).toLower();
    const QString rest = words.mid(1).join(QLatin1Char(' ')).trimmed();
    if (action == QLatin1String("stop") && rest.isEmpty()) {
        board_->stop();
        return done(QStringLiteral("The board's sounds are stopped."));
    }
    if (action == QLatin1String("play") && !rest.isEmpty()) {
        if (const auto entry = boardStore_->find(rest)) return play(entry->id, entry->name);
        if (boardStore_->entries().isEmpty())
            return refused(QStringLiteral("There is no sound named %1: the board is empty.").arg(quoted(rest)));
        QStringList names;
        for (const BoardEntry& entry : boardStore_->entries()) names << quoted(entry.name);
        return refused(QStringLiteral("There is no sound named %1 on the board. It has %2.")
                           .arg(quoted(rest), names.join(QStringLiteral(", "))));
    }
    if (action == QLatin1String("key") && !rest.isEmpty()) {
        for (const BoardEntry& entry : boardStore_->entries())
            if (entry.key == rest) return play(entry.id, entry.name);
        return refused(QStringLiteral("No sound of the board is on the key %1.").arg(quoted(rest)));
    }
    return refused(QStringLiteral("\u201cboard\u201d needs play and a sound's name, key and its key, or stop."));
}

ControlReply ControlCommands::play(const QUuid& id, const QString& name) {
    QString why;
    const auto failed = QObject::connect(board_, &Soundboard::failed, board_, [&why](const QString& m) { why = m; });
    const bool playing = board_->play(id);
    QObject::disconnect(failed);
    if (!playing) return refused(why.isEmpty() ? QStringLiteral("%1 couldn't be played.").arg(quoted(name)) : why);
    return done(QStringLiteral("Playing %1%2.")
                    .arg(quoted(name), engine_.isLive() ? QString() : QStringLiteral(" on the output device, as live is off")));
}

ControlReply ControlCommands::say(const QString& words) {
    if (!boardStore_ || !board_) return refused(QStringLiteral("This Parlova has no soundboard to say it with."));
    QString error;
    const auto request = SayRequest::parse(words, &error);
    if (!request) return refused(error);
    using Kind = VoiceSelection::Kind;
    Soundboard::Speaker speaker;
    QString who = QStringLiteral("the selected voice");
    if (!request->voice.isEmpty()) {
        const auto choice = selection_.findNamed(request->voice, Kind::effect);
        if (!choice) {
            if (selection_.findNamed(request->voice, Kind::clone))
                return refused(QStringLiteral("%1 is a cloned voice; say it with --clone.").arg(quoted(request->voice)));
            return refused(QStringLiteral("There is no voice named %1.").arg(quoted(request->voice)));
        }
        speaker.voiceID = choice->id;
        who = request->voice;
    } else if (!request->clone.isEmpty()) {
        const auto choice = selection_.findNamed(request->clone, Kind::clone);
        if (!choice) {
            if (selection_.findNamed(request->clone, Kind::effect))
                return refused(QStringLiteral("%1 is an effect voice; say it with --voice.").arg(quoted(request->clone)));
            return refused(QStringLiteral("There is no cloned voice named %1.").arg(quoted(request->clone)));
        }
        speaker.cloneID = choice->id;
        who = request->clone;
    }
    QString why;
    const auto failed = QObject::connect(board_, &Soundboard::failed, board_, [&why](const QString& m) { why = m; });
    const bool saying = board_->say(request->text, speaker);
    QObject::disconnect(failed);
    if (!saying) return refused(why.isEmpty() ? QStringLiteral("The sentence couldn't be said.") : why);
    return done(QStringLiteral("Saying %1 in %2%3.")
                    .arg(quoted(shortened(request->text)), who,
                         engine_.isLive() ? QString() : QStringLiteral(" on the output device, as live is off")));
}

QJsonObject ControlCommands::status() const {
    const TalkControl& talk = engine_.talk();
    QJsonObject status{
        {"live", engine_.isLive()},
        {"startingLive", engine_.isStartingLive()},
        {"callMode", engine_.callMode()},
        {"voice", selection_.current() ? selection_.name() : engine_.voice().name},
        {"clonedVoice", selection_.isClone()},
        {"bypass", engine_.bypass()},
        {"talkMode", talkModeName(talk.mode())},
        {"talking", talk.isTalking()},
        {"talkStatus", talk.status()},
        {"cleanMic", engine_.cleanMic().enabled()},
        {"gateDb", static_cast<double>(engine_.cleanMic().gateDb())},
        {"error", engine_.errorMessage()},
        {"systemMicElsewhere", engine_.systemMicElsewhere()},
    };
    // Milliseconds from the microphone to the output; absent while unknown.
    if (const auto delay = engine_.liveDelayEstimate()) status.insert("delayMs", qRound(*delay * 1000));
    if (shortcutHint_) status.insert("shortcuts", shortcutHint_());
    if (boardStore_ && board_)
        status.insert("board", QJsonObject{{"sounds", static_cast<int>(boardStore_->entries().size())},
                                           {"playing", board_->isPlaying()},
                                           {"making", board_->isMaking()},
                                           {"status", board_->status()}});
    return status;
}

QString ControlCommands::statusText(const QJsonObject& s) const {
    const auto onOff = [&](const char* key) { return s.value(key).toBool() ? QStringLiteral("on") : QStringLiteral("off"); };
    QStringList lines{
        QStringLiteral("Live: %1%2").arg(onOff("live"), s.value("callMode").toBool() ? QStringLiteral(" (call mode)") : QString()),
        QStringLiteral("Voice: %1").arg(s.value("voice").toString()),
        QStringLiteral("Natural voice: %1").arg(onOff("bypass")),
        QStringLiteral("Talk mode: %1%2").arg(s.value("talkMode").toString(),
                                               s.value("talkStatus").toString().isEmpty()
                                                   ? QString()
                                                   : QStringLiteral(" (%1)").arg(s.value("talkStatus").toString())),
        QStringLiteral("Clean up my mic: %1").arg(onOff("cleanMic")),
    };
    if (s.contains("delayMs")) lines << QStringLiteral("Delay: %1 ms").arg(s.value("delayMs").toInt());
    if (!s.value("systemMicElsewhere").toString().isEmpty())
        lines << systemMicElsewhereSentence(s.value("systemMicElsewhere").toString());
    if (s.contains("board")) {
        const QJsonObject board = s.value("board").toObject();
        const int sounds = board.value("sounds").toInt();
        QString line = QStringLiteral("Board: %1 %2").arg(sounds).arg(sounds == 1 ? "sound" : "sounds");
        if (board.value("playing").toBool()) line += QStringLiteral(", playing");
        if (!board.value("status").toString().isEmpty()) line += QStringLiteral(" (%1)").arg(board.value("status").toString());
        lines << line;
    }
    if (s.contains("shortcuts")) lines << QStringLiteral("Shortcuts: %1").arg(s.value("shortcuts").toString());
    if (!s.value("error").toString().isEmpty()) lines << s.value("error").toString();
    return lines.join(QLatin1Char('\n'));
}

}  // namespace parlova
